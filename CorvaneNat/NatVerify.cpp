// Hardware verification: the worker's entry-id table against the shadow, and the
// qualifiers of every entry it holds read back from the chip against the key they were
// programmed from. Any broken expectation stops the process with the expectation's text;
// nothing is repaired. Tools reach it as the operation "doVerify" of the worker.
//
// What is read back is what each entry's recipe (natEntryRecipe, NatEntryRecipe.h)
// sets: the SrcIp, DstIp, L4SrcPort, L4DstPort, IpProtocol and L3Ingress qualifiers, with
// the value (and for addresses the mask) of the recipe's last call of each; a qualifier
// the recipe does not set is expected as 0 (the read fails, or reads 0). Source-side keys
// have one entry (VLAN 0), destination-side keys one per VLAN of the data. Keys that need
// fragment entries (needsFragEntry) have, with fragments enabled, a fragment entry for
// every VLAN with a default entry and no other; dynamic keys are not held to that rule.
//
// Which shadow keys have a row. The table has a row for every key the worker programmed,
// kept also when its entries are gone (all VLANs dropped, TCAM full). A shadow key
// without a row is counted as legitimately unprogrammed, and skipped, when the commit
// would not have programmed it (NatWorkerSm::commitProgramsKey, the predicate the commit
// itself follows). The first check is then "rows == shadow entries - unprogrammed
// keys", reported with the text "entryIdTable()->entrys() == shadow()->entrys()". Any
// other shadow key without a row (a lost row) breaks it, and so does a row for a key not
// in the shadow.
//
// Keys short of entries because the TCAM ran out. Programming that finds the TCAM full
// records nothing for that VLAN (a new key keeps an empty row) and answers its
// transaction with result 2. A key whose answer on this module is 2 is held only to the
// entries it has: its count of default entries and the presence of each VLAN are not
// checked, while every entry it does have is checked and read back as usual. Once the
// key is committed again with room to spare, its answer is 1 and it is held to
// everything. A worker that has not initialized has no table and nothing to verify.

#include <algorithm>
#include <vector>

#include "CorvaneNat/NatTrace.h"
#include "CorvaneNat/NatWorkerSm.h"
#include "CorvaneNat/SdkCall.h"
#include "platform/chip/Sdk.h"
#include "platform/fwk/ActivityLock.h"
#include "platform/fwk/Assert.h"
#include "platform/nat/NatChipAttr.h"

namespace Corvane {

namespace {

constexpr U32 l3IngressMask = 0x1fff;

// The same VLANs in both maps.
bool sameVlans( VlanEntryIdMap const& a, VlanEntryIdMap const& b ) {
   return a.size() == b.size() &&
          std::all_of( a.begin(), a.end(), [&b]( VlanEntryIdMap::Pair const& p ) {
             return b.has( p.vlanId );
          } );
}

// The VLANs a key's entries are recorded under: VLAN 0 for a source-side key, the
// data's VLANs (each once, in the data's order) for a destination-side key.
std::vector<U16> entryVlans( NatKeySide side, Oro::NatHwData const& data ) {
   std::vector<U16> vlanIds;
   if ( side == NatKeySide::source ) {
      vlanIds.push_back( 0 );
   } else if ( side == NatKeySide::destination ) {
      for ( U32 i = 0; i < data.vlanIds(); ++i ) {
         U16 const vlanId = data.vlanId( i );
         if ( std::find( vlanIds.begin(), vlanIds.end(), vlanId ) == vlanIds.end() ) {
            vlanIds.push_back( vlanId );
         }
      }
   }
   return vlanIds;
}

// What the recipe leaves an address qualifier holding; 0.0.0.0/0 when not set.
Wirel::IpAddrWithFullMask expectedAddr( FpEntryRecipe const& recipe, FpCall call ) {
   FpStep const* step = recipe.last( call );
   return step ? Wirel::IpAddrWithFullMask( Wirel::IpAddr( step->value ), step->mask )
               : Wirel::IpAddrWithFullMask();
}

// What the recipe leaves a qualifier's data at; 0 when not set.
U32 expectedValue( FpEntryRecipe const& recipe, FpCall call ) {
   FpStep const* step = recipe.last( call );
   return step ? step->value : 0;
}

// What a read-back of one qualifier gave: the SDK's code, the data and the mask.
template <typename T>
struct ReadBack {
   int rv;
   T data;
   T mask;
};

// The texts of a read-back's expectations: the data, the mask, and (when the read
// fails) the expected value being unset.
struct ReadBackTexts {
   char const* data;
   char const* mask;
   char const* unset;
};

constexpr ReadBackTexts ipTexts = { "ip == ipAddr.address().value()",
                                    "mask == ipAddr.mask()",
                                    "ipAddr.address().value() == 0" };
constexpr ReadBackTexts portTexts = { "port == l4Port", "mask == ( U16 )-1",
                                      "l4Port == 0" };

// A read that succeeds must give `expected` (and `expectedMask` where `maskChecked`); a
// read that fails is right only for a qualifier that the entry must not set. A broken
// expectation stops the process under the name of the read-back `function`.
template <typename T>
void checkReadBack( ReadBack<T> const& read, T expected, T expectedMask, bool maskChecked,
                    ReadBackTexts const& texts, char const* function ) {
   auto const expect = [function]( bool holds, char const* text ) {
      if ( !holds ) {
         Fwk::assertionFailed( text, __FILE__, __LINE__, function );
      }
   };
   if ( read.rv == Shim::sdk_->BCM_E_NONE ) {
      expect( read.data == expected, texts.data );
      if ( maskChecked ) {
         expect( read.mask == expectedMask, texts.mask );
      }
   } else {
      expect( expected == 0, texts.unset );
   }
}

}  // namespace

void NatWorkerSm::doVerifySrcIp( U32 entryId, Wirel::IpAddrWithFullMask const& ipAddr ) {
   U32 ip = 0, mask = 0;
   int const rv =
       CORVANE_SDK_READ( bcm_field_qualify_SrcIp_get, unit(), entryId, &ip, &mask );
   if ( rv == Shim::sdk_->BCM_E_NONE ) {
      NAT_TRACE( 4, "doVerifySrcIp", " entry sip " << entryId );
      NAT_TRACE( 4, "doVerifySrcIp", " sip " << Wirel::IpAddr( ip ).stringValue() );
      NAT_TRACE( 4, "doVerifySrcIp", "mask " << Wirel::IpAddr( mask ).stringValue() );
   }
   checkReadBack( { rv, ip, mask }, ipAddr.address().value(), ipAddr.mask(), true,
                  ipTexts, __func__ );
}

void NatWorkerSm::doVerifyDstIp( U32 entryId, Wirel::IpAddrWithFullMask const& ipAddr ) {
   U32 ip = 0, mask = 0;
   int const rv =
       CORVANE_SDK_READ( bcm_field_qualify_DstIp_get, unit(), entryId, &ip, &mask );
   checkReadBack( { rv, ip, mask }, ipAddr.address().value(), ipAddr.mask(), true,
                  ipTexts, __func__ );
}

void NatWorkerSm::doVerifySrcL4Port( U32 entryId, U16 l4Port ) {
   U16 port = 0, mask = 0;
   int const rv =
       CORVANE_SDK_READ( bcm_field_qualify_L4SrcPort_get, unit(), entryId, &port, &mask );
   checkReadBack( { rv, port, mask }, l4Port, U16( -1 ), l4Port != 0, portTexts,
                  __func__ );
}

void NatWorkerSm::doVerifyDstL4Port( U32 entryId, U16 l4Port ) {
   U16 port = 0, mask = 0;
   int const rv =
       CORVANE_SDK_READ( bcm_field_qualify_L4DstPort_get, unit(), entryId, &port, &mask );
   checkReadBack( { rv, port, mask }, l4Port, U16( -1 ), l4Port != 0, portTexts,
                  __func__ );
}

void NatWorkerSm::doVerifyIpProtocol( U32 entryId, U8 protocol ) {
   U8 proto = 0, mask = 0;
   int const rv = CORVANE_SDK_READ( bcm_field_qualify_IpProtocol_get, unit(), entryId,
                                    &proto, &mask );
   checkReadBack( { rv, proto, mask }, protocol, U8( 0xff ), protocol != 0,
                  { "proto == protocol", "mask == 0xff", "protocol == 0" }, __func__ );
}

void NatWorkerSm::doVerifyL3Ingress( U32 entryId, U16 vlanId ) {
   U32 intf = 0, mask = 0;
   int const rv =
       CORVANE_SDK_READ( bcm_field_qualify_L3Ingress_get, unit(), entryId, &intf, &mask );
   checkReadBack( { rv, intf, mask }, U32( vlanId ), l3IngressMask, vlanId != 0,
                  { "intf == vlanId", "mask == 0x1fff", "vlanId == 0" }, __func__ );
}

namespace {

// Whether this module answered the key's transaction with "hardware full".
bool answeredHardwareFull( NatWorkerSm const& worker,
                           Oro::NatHwShadowEntry const& entry ) {
   if ( !worker.xactSluiceStatusDir() ) {
      return false;
   }
   Xact::XactSluiceStatus const* status =
       worker.xactSluiceStatusDir()->xactStatus( Xact::XactSluiceKey( entry.uid() ) );
   return status && status->result == Xact::XactSluiceStatus::hwFull;
}

// Reads back the six qualifiers of one entry of `hwKey` recorded under `vlanId`.
void verifyEntry( NatWorkerSm& worker, U32 entryId, NatEntryKind kind,
                  Oro::NatHwKey const& hwKey, Oro::NatHwData const& shadowData,
                  U16 vlanId ) {
   if ( !hwKey.isDynamicNat() && !needsFragEntry( hwKey ) ) {
      // Addresses only: the key's own port predicates must agree.
      FWK_ASSERT_TEXT( !hwKey.isStaticNapt() && !hwKey.isTwiceNapt(),
                       "!hwKey.isStaticNapt() && !hwKey.isTwiceNapt()" );
   }
   // The opaque id is an action's; no read-back needs it.
   NatEntryRecipe const recipe =
       natEntryRecipe( hwKey, shadowData, shadowData, vlanId, kind, worker.mode(), 0 );
   NAT_TRACE( 8, "doVerify",
              " entry " << entryId
                        << ( kind == NatEntryKind::fragEntry ? " (fragment)" : "" )
                        << " vlan " << vlanId );
   worker.doVerifyL3Ingress( entryId,
                             U16( expectedValue( recipe, FpCall::qualifyL3Ingress ) ) );
   worker.doVerifySrcIp( entryId, expectedAddr( recipe, FpCall::qualifySrcIp ) );
   worker.doVerifySrcL4Port( entryId,
                             U16( expectedValue( recipe, FpCall::qualifyL4SrcPort ) ) );
   worker.doVerifyDstIp( entryId, expectedAddr( recipe, FpCall::qualifyDstIp ) );
   worker.doVerifyDstL4Port( entryId,
                             U16( expectedValue( recipe, FpCall::qualifyL4DstPort ) ) );
   worker.doVerifyIpProtocol( entryId,
                              U8( expectedValue( recipe, FpCall::qualifyIpProtocol ) ) );
}

}  // namespace

void NatWorkerSm::doVerify() {
   CorvaneNat::NatChipAttr const& chipAttr = CorvaneNat::getNatChipAttr();
   NAT_TRACE( 8, "doVerify",
              " mod " << modId() << " fragmentEnabled " << fragmentEnabled()
                      << " addrOnlyMode " << isAddrOnlyMode() << " noNatTrapFilters "
                      << chipAttr.noNatTrapFilters << " natTcamHitCountSupported "
                      << chipAttr.natTcamHitCountSupported );
   if ( !entryIdTable() ) {
      NAT_TRACE( 0, "doVerify",
                 " mod " << modId() << " not initialized, nothing to verify" );
      return;
   }

   std::size_t unprogrammed = 0;
   for ( auto const& shadowEntry : *shadow() ) {
      if ( !entryIdTable()->entryHas( shadowEntry.first ) &&
           !commitProgramsKey( shadowEntry.second ) ) {
         ++unprogrammed;
      }
   }
   NAT_TRACE( 8, "doVerify",
              " rows " << entryIdTable()->entrys() << " shadow entries "
                       << shadow()->entrys() << " unprogrammed " << unprogrammed );
   FWK_ASSERT_TEXT( entryIdTable()->entrys() + unprogrammed == shadow()->entrys(),
                    "entryIdTable()->entrys() == shadow()->entrys()" );

   for ( EntryIdTableEntry const& entry : *entryIdTable() ) {
      Oro::NatHwKey const& hwKey = entry.key();
      Oro::NatHwShadowEntry const* shadowEntry = shadow()->entry( hwKey );
      FWK_ASSERT_TEXT( shadowEntry, "shadow()->entryHas( hwKey )" );
      Oro::NatHwData const& shadowData = shadowEntry->data();

      // Only keys that need fragment entries get them (see the top of the file).
      FWK_ASSERT_TEXT( !natKeyHasFragEntry( hwKey, mode() ) || hwKey.isDynamicNat() ||
                           sameVlans( entry.defaultEntryIds(), entry.fragEntryIds() ),
                       "!fragmentEnabled() || hwKey.isDynamicNat() || "
                       "entry.defaultEntryIds() == entry.fragEntryIds()" );

      NatKeySide const side = natKeySide( hwKey.keyType() );
      FWK_ASSERT_TEXT( side != NatKeySide::none, "unsupported translation type" );
      std::vector<U16> const vlanIds = entryVlans( side, shadowData );
      bool const shortOfEntries = answeredHardwareFull( *this, *shadowEntry );
      if ( !shortOfEntries ) {
         if ( side == NatKeySide::source ) {
            FWK_ASSERT_TEXT( entry.defaultEntryIds().size() == 1,
                             "entry.defaultEntryIds() == 1" );
         } else {
            FWK_ASSERT_TEXT( entry.defaultEntryIds().size() == vlanIds.size(),
                             "entry.defaultEntryIds() == shadowData.vlanIds()" );
         }
      }
      NAT_TRACE( 8, "doVerify",
                 " key " << hwKey.stringValue() << " entries "
                         << entry.defaultEntryIds().size() << " frag entries "
                         << entry.fragEntryIds().size()
                         << ( shortOfEntries ? " (hardware full)" : "" ) );

      for ( U16 const vlanId : vlanIds ) {
         if ( !entry.defaultEntryIdHas( vlanId ) ) {
            FWK_ASSERT_TEXT( shortOfEntries, "entry.defaultEntryIdHas( vlanId )" );
            continue;
         }
         U32 const entryId = entry.defaultEntryId( vlanId );
         FWK_ASSERT_TEXT( entryId != 0, "entryId != 0" );
         verifyEntry( *this, entryId, NatEntryKind::defaultEntry, hwKey, shadowData,
                      vlanId );
         if ( entry.fragEntryIdHas( vlanId ) ) {
            U32 const fragEntryId = entry.fragEntryId( vlanId );
            FWK_ASSERT_TEXT( fragEntryId != 0, "entryId != 0" );
            verifyEntry( *this, fragEntryId, NatEntryKind::fragEntry, hwKey, shadowData,
                         vlanId );
         }
      }
   }
   NAT_TRACE( 8, "doVerify", " mod " << modId() << " verified" );
}

}  // namespace Corvane
