#include "platform/chip/Qualifier.h"

#include "platform/fwk/Assert.h"

namespace Chip {

namespace {

struct QualifierInfo {
   char const* name;
   unsigned width;
};

// In the order of the enumeration.
QualifierInfo const qualifierInfo[qualifierCount] = {
    { "MyStationHit", 1 }, { "SrcClassField", 32 }, { "SrcIp", 32 },
    { "DstIp", 32 },       { "L4SrcPort", 16 },     { "L4DstPort", 16 },
    { "IpProtocol", 8 },   { "TcpControl", 8 },     { "L3Ingress", 13 },
    { "IpFrag", 0 },       { "OpaqueObject1", 32 }, { "ExactMatch", 1 },
};

char const* const ipFragSelectorNames[ipFragSelectorCount] = {
    "bcmFieldIpFragNon", "bcmFieldIpFragFirst", "bcmFieldIpFragNonOrFirst",
    "bcmFieldIpFragNotFirst", "bcmFieldIpFragAny" };

QualifierInfo const& info( Qualifier qualifier ) {
   auto index = static_cast<unsigned>( qualifier );
   FWK_ASSERT( index < qualifierCount );
   return qualifierInfo[index];
}

}  // namespace

char const* qualifierName( Qualifier qualifier ) {
   return info( qualifier ).name;
}

unsigned qualifierWidth( Qualifier qualifier ) {
   return info( qualifier ).width;
}

U32 qualifierWidthMask( Qualifier qualifier ) {
   unsigned width = qualifierWidth( qualifier );
   return width >= 32 ? 0xffffffffu : ( 1u << width ) - 1;
}

char const* ipFragSelectorName( IpFragSelector selector ) {
   auto index = static_cast<unsigned>( selector );
   FWK_ASSERT( index < ipFragSelectorCount );
   return ipFragSelectorNames[index];
}

char const* exactMatchFieldName( ExactMatchField field ) {
   FWK_ASSERT( field == ExactMatchField::HitStatus );
   return "bcmFieldQualifyExactMatchHitStatus";
}

}  // namespace Chip
