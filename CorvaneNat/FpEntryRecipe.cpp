#include "CorvaneNat/FpEntryRecipe.h"

#include "CorvaneNat/NatTrace.h"
#include "CorvaneNat/SdkCall.h"
#include "platform/chip/Sdk.h"
#include "platform/fwk/Assert.h"

namespace Corvane {

static_assert( unsigned( FpCall::qualifyExactMatch ) < 16,
               "every qualifier has its bit in an FpQualifierSet" );

FpStep const* FpEntryRecipe::last( FpCall call ) const {
   for ( std::size_t i = size_; i > 0; --i ) {
      if ( steps_[i - 1].call == call ) {
         return &steps_[i - 1];
      }
   }
   return nullptr;
}

namespace {

// The SDK's value of a selector.
int selectorValue( Shim::Sdk const& sdk, FpSelector selector ) {
   return selector == FpSelector::bcmFieldIpFragNotFirst
              ? sdk.bcmFieldIpFragNotFirst
              : sdk.bcmFieldQualifyExactMatchHitStatus;
}

// The SDK's id of an action call.
int actionValue( Shim::Sdk const& sdk, FpCall call ) {
   switch ( call ) {
      case FpCall::actionCopyToCpu:
         return sdk.bcmFieldActionCopyToCpu;
      case FpCall::actionCopyToCpuCancel:
         return sdk.bcmFieldActionCopyToCpuCancel;
      case FpCall::actionDrop:
         return sdk.bcmFieldActionDrop;
      case FpCall::actionDropCancel:
         return sdk.bcmFieldActionDropCancel;
      case FpCall::actionCosQCpuNew:
         return sdk.bcmFieldActionCosQCpuNew;
      case FpCall::actionL3Switch:
         return sdk.bcmFieldActionL3Switch;
      case FpCall::actionRedirectIpmc:
         return sdk.bcmFieldActionRedirectIpmc;
      case FpCall::actionAssignExtractionCtrlId:
         return sdk.bcmFieldActionAssignExtractionCtrlId;
      case FpCall::actionAssignOpaqueObject1:
         return sdk.bcmFieldActionAssignOpaqueObject1;
      default:
         FWK_ASSERT_TEXT( false, "isAction( call )" );
         return 0;
   }
}

// Makes the SDK call of one step; returns its code.
int stepCall( Shim::Sdk& sdk, U16 unit, U32 entryId, FpStep const& step ) {
   switch ( step.call ) {
      case FpCall::qualifyMyStationHit:
         return sdk.bcm_field_qualify_MyStationHit( unit, entryId, U8( step.value ),
                                                    U8( step.mask ) );
      case FpCall::qualifySrcClassField:
         return sdk.bcm_field_qualify_SrcClassField( unit, entryId, step.value,
                                                     step.mask );
      case FpCall::qualifySrcIp:
         return sdk.bcm_field_qualify_SrcIp( unit, entryId, step.value, step.mask );
      case FpCall::qualifyDstIp:
         return sdk.bcm_field_qualify_DstIp( unit, entryId, step.value, step.mask );
      case FpCall::qualifyL4SrcPort:
         return sdk.bcm_field_qualify_L4SrcPort( unit, entryId, U16( step.value ),
                                                 U16( step.mask ) );
      case FpCall::qualifyL4DstPort:
         return sdk.bcm_field_qualify_L4DstPort( unit, entryId, U16( step.value ),
                                                 U16( step.mask ) );
      case FpCall::qualifyIpProtocol:
         return sdk.bcm_field_qualify_IpProtocol( unit, entryId, U8( step.value ),
                                                  U8( step.mask ) );
      case FpCall::qualifyTcpControl:
         return sdk.bcm_field_qualify_TcpControl( unit, entryId, U8( step.value ),
                                                  U8( step.mask ) );
      case FpCall::qualifyL3Ingress:
         return sdk.bcm_field_qualify_L3Ingress( unit, entryId, step.value, step.mask );
      case FpCall::qualifyIpFrag:
         return sdk.bcm_field_qualify_IpFrag( unit, entryId,
                                              selectorValue( sdk, step.selector ) );
      case FpCall::qualifyOpaqueObject1:
         return sdk.bcm_field_qualify_OpaqueObject1( unit, entryId, step.value,
                                                     step.mask );
      case FpCall::qualifyExactMatch:
         return sdk.bcm_field_qualify_ExactMatch( unit, entryId, step.instance,
                                                  selectorValue( sdk, step.selector ),
                                                  step.value, step.mask );
      default:
         return sdk.bcm_field_action_add( unit, entryId, actionValue( sdk, step.call ),
                                          step.value, step.mask );
   }
}

// Makes the SDK calls of the steps [first, last), each with the activity lock given up,
// and checks each as sdkCallDone does. Whether calls are traced is read once for the
// run: an entry's calls are traced all or none.
void applySteps( Shim::Sdk& sdk, U16 unit, U32 entryId, FpStep const* first,
                 FpStep const* last, char const* file ) {
   bool const traced = traceHandle().enabled( 4 );
   for ( ; first != last; ++first ) {
      FpStep const& step = *first;
      int const rc = [&] {
         Fwk::ActivityLockRelease release;
         return stepCall( sdk, unit, entryId, step );
      }();
      if ( rc < 0 || traced ) {
         sdkCallDone( rc, step.text, file, step.line, step.function );
      }
   }
}

// The texts of bcm_field_qualifier_delete, made from the qualifier's name.
#define FP_QUALIFIER_DELETE( Name )                                                    \
   case FpCall::qualify##Name:                                                         \
      return {                                                                         \
         sdk.bcmFieldQualify##Name,                                                    \
             "bcm_field_qualifier_delete( unit(), entryId, bcmFieldQualify" #Name " )" \
      }

struct QualifierDelete {
   int qualifier;
   char const* text;
};

QualifierDelete qualifierDelete( Shim::Sdk const& sdk, FpCall call ) {
   switch ( call ) {
      FP_QUALIFIER_DELETE( MyStationHit );
      FP_QUALIFIER_DELETE( SrcClassField );
      FP_QUALIFIER_DELETE( SrcIp );
      FP_QUALIFIER_DELETE( DstIp );
      FP_QUALIFIER_DELETE( L4SrcPort );
      FP_QUALIFIER_DELETE( L4DstPort );
      FP_QUALIFIER_DELETE( IpProtocol );
      FP_QUALIFIER_DELETE( TcpControl );
      FP_QUALIFIER_DELETE( L3Ingress );
      FP_QUALIFIER_DELETE( IpFrag );
      FP_QUALIFIER_DELETE( OpaqueObject1 );
      default:
         return { sdk.bcmFieldQualifyExactMatchHitStatus,
                  "bcm_field_qualifier_delete( unit(), entryId, "
                  "bcmFieldQualifyExactMatchHitStatus )" };
   }
}

#undef FP_QUALIFIER_DELETE

// The calls are written as the entry's programming writes them: on unit() and entryId,
// traced under the programming operation's name.
struct EntryCalls {
   U16 unitValue;
   U32 entryId;
   char const* function;
   U16 unit() const { return unitValue; }

   void removeAllActions() {
      CORVANE_SDK_AS( function, bcm_field_action_remove_all, unit(), entryId );
   }
};

}  // namespace

void applyFpEntryRecipe( U16 unit, U32 entryId, FpEntryRecipe const& recipe,
                         bool reinstall, FpQualifierSet dropped ) {
   Shim::Sdk& sdk = *Shim::sdk_;
   if ( !reinstall ) {
      applySteps( sdk, unit, entryId, recipe.begin(), recipe.end(), recipe.file() );
      return;
   }
   char const* const function = recipe.function();
   for ( unsigned call = 0; call <= unsigned( FpCall::qualifyExactMatch ); ++call ) {
      if ( dropped & fpQualifierBit( FpCall( call ) ) ) {
         QualifierDelete const del = qualifierDelete( sdk, FpCall( call ) );
         // An entry may lack a qualifier that another entry of its key held.
         sdkCallDoneTolerating(
             [&] {
                Fwk::ActivityLockRelease release;
                return sdk.bcm_field_qualifier_delete( unit, entryId, del.qualifier );
             }(),
             sdk.BCM_E_NOT_FOUND, del.text, __FILE__, __LINE__, function );
      }
   }
   FpStep const* const removeAllAt = recipe.begin() + recipe.removeAllAt();
   applySteps( sdk, unit, entryId, recipe.begin(), removeAllAt, recipe.file() );
   EntryCalls{ unit, entryId, function }.removeAllActions();
   applySteps( sdk, unit, entryId, removeAllAt, recipe.end(), recipe.file() );
}

}  // namespace Corvane
