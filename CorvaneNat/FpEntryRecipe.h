#pragma once

// What one field-processor entry holds, as a value: its group and priority and the SDK
// calls that fill it, in the order they are made (qualifiers with value and mask,
// actions with their two parameters), and where a reprogramming removes the old actions.
// Recipes are built by pure functions (no SDK call, no entity written); programming
// applies them (applyFpEntryRecipe) and verification reads back what they list.
//
// Each step carries the text of its call, made from the expression that builds it (the
// FP_QUALIFY and FP_ACTION macros stringize their arguments), so the text in a trace or
// error line cannot drift from the value the call is made with.

#include <array>
#include <cstddef>

#include "platform/fwk/Assert.h"
#include "platform/fwk/Types.h"
#include "platform/nat/NatHwKey.h"
#include "platform/tcam/TcamTypes.h"

namespace Corvane {

// The SDK calls a recipe is made of: bcm_field_qualify_<Name> and
// bcm_field_action_add( ..., bcmFieldAction<Name>, ... ).
enum class FpCall : U8 {
   qualifyMyStationHit,
   qualifySrcClassField,
   qualifySrcIp,
   qualifyDstIp,
   qualifyL4SrcPort,
   qualifyL4DstPort,
   qualifyIpProtocol,
   qualifyTcpControl,
   qualifyL3Ingress,
   qualifyIpFrag,
   qualifyOpaqueObject1,
   qualifyExactMatch,
   actionCopyToCpu,
   actionCopyToCpuCancel,
   actionDrop,
   actionDropCancel,
   actionCosQCpuNew,
   actionL3Switch,
   actionRedirectIpmc,
   actionAssignExtractionCtrlId,
   actionAssignOpaqueObject1,
};

inline bool isQualifier( FpCall call ) {
   return call <= FpCall::qualifyExactMatch;
}

// A set of qualifier calls, one bit per qualifier (bit FpCall value).
typedef U16 FpQualifierSet;
constexpr FpQualifierSet fpQualifierBit( FpCall call ) {
   return FpQualifierSet( 1u << unsigned( call ) );
}

// The SDK's run-time selectors a recipe names; the shim gives their values when the
// recipe is applied.
enum class FpSelector : U32 {
   bcmFieldIpFragNotFirst,
   bcmFieldQualifyExactMatchHitStatus
};

// A call argument: a number, or an ACL id (the value it carries).
struct FpValue {
   FpValue( U32 v ) : value( v ) {}
   FpValue( Oro::NatAclId id ) : value( id.value() ) {}
   U32 value;
};

// One call of a recipe. For a qualifier `value` and `mask` are its data and mask
// (IpFrag: only `selector`; ExactMatch: also its instance and field selector); for an
// action its two parameters.
struct FpStep {
   FpCall call;
   U16 line;  // where the recipe states the call
   U32 value;
   U32 mask;
   U32 instance;
   FpSelector selector;
   char const* text;
   char const* function;  // the operation whose call it is, for its trace line
};

class FpEntryRecipe {
public:
   static constexpr std::size_t maxSteps = 16;

   // `function` names the operation the calls are traced under, until functionIs.
   FpEntryRecipe( TcamGroupAssignment group, S32 priority, char const* file,
                  char const* function )
       : group_( group ),
         priority_( priority ),
         file_( file ),
         function_( function ),
         stepFunction_( function ) {}

   TcamGroupAssignment group() const { return group_; }
   S32 priority() const { return priority_; }
   // The source file the steps' lines refer to.
   char const* file() const { return file_; }
   // The operation that programs the entry (and removes its actions or qualifiers).
   char const* function() const { return function_; }

   FpStep const* begin() const { return steps_.data(); }
   FpStep const* end() const { return steps_.data() + size_; }
   std::size_t size() const { return size_; }
   // A reprogramming removes all actions just before step removeAllAt() (size() when
   // after the last step).
   std::size_t removeAllAt() const { return removeAllAt_; }

   // The last step of a call, or null: what the entry holds for that qualifier.
   FpStep const* last( FpCall call ) const;
   // The qualifiers the recipe sets.
   FpQualifierSet qualifiers() const { return qualifiers_; }

   // Building. Calls are appended in call order; more than maxSteps stops the process.
   // Inline: a commit builds every step of every entry it programs.
   void add( FpCall call, FpValue value, FpValue mask, char const* text, int line,
             U32 instance = 0, FpSelector selector = FpSelector() ) {
      FWK_ASSERT_TEXT( size_ < maxSteps, "size_ < maxSteps" );
      steps_[size_++] = { call,     U16( line ), value.value, mask.value,
                          instance, selector,    text,        stepFunction_ };
      if ( isQualifier( call ) ) {
         qualifiers_ |= fpQualifierBit( call );
      }
   }
   // The old actions of a reprogrammed entry go here, before the next step added.
   void removeAllHere() { removeAllAt_ = size_; }
   // The steps added from now on are traced under `function`.
   void functionIs( char const* function ) { stepFunction_ = function; }

private:
   TcamGroupAssignment group_;
   S32 priority_;
   char const* file_;
   char const* function_;
   char const* stepFunction_;
   std::array<FpStep, maxSteps> steps_;
   std::size_t size_ = 0;
   std::size_t removeAllAt_ = 0;
   FpQualifierSet qualifiers_ = 0;
};

// Makes the SDK calls of a recipe on an entry the caller got from the recipe's group,
// in order. When `reinstall` (the entry holds an earlier recipe), first deletes the
// qualifiers of `dropped` (held by the entry, not set by the recipe), and removes all
// actions at the recipe's place. Priority and installation are the caller's. The calls
// follow the plug-in's SDK call convention (SdkCall.h).
void applyFpEntryRecipe( U16 unit, U32 entryId, FpEntryRecipe const& recipe,
                         bool reinstall, FpQualifierSet dropped );

}  // namespace Corvane

// Appends bcm_field_qualify_<Name>( unit(), entryId, data, mask ) to `recipe`.
#define FP_QUALIFY( recipe, Name, data, mask )                                       \
   ( recipe ).add( ::Corvane::FpCall::qualify##Name, ( data ), ( mask ),             \
                   "bcm_field_qualify_" #Name "( unit(), entryId, " #data ", " #mask \
                   " )",                                                             \
                   __LINE__ )
// Appends a qualifier that takes one SDK selector, e.g. IpFrag.
#define FP_QUALIFY_SELECTOR( recipe, Name, selector )                               \
   ( recipe ).add( ::Corvane::FpCall::qualify##Name, 0u, 0u,                        \
                   "bcm_field_qualify_" #Name "( unit(), entryId, " #selector " )", \
                   __LINE__, 0u, ::Corvane::FpSelector::selector )
// Appends bcm_field_qualify_ExactMatch( unit(), entryId, instance, field, data, mask ).
#define FP_QUALIFY_EXACT_MATCH( recipe, instance, field, data, mask )          \
   ( recipe ).add( ::Corvane::FpCall::qualifyExactMatch, ( data ), ( mask ),   \
                   "bcm_field_qualify_ExactMatch( unit(), entryId, " #instance \
                   ", " #field ", " #data ", " #mask " )",                     \
                   __LINE__, ( instance ), ::Corvane::FpSelector::field )
// Appends bcm_field_action_add( unit, entryId, bcmFieldAction<Name>, p0, p1 ), as the
// trap actions write it.
#define FP_UNIT_ACTION( recipe, Name, p0, p1 )                                          \
   ( recipe ).add( ::Corvane::FpCall::action##Name, ( p0 ), ( p1 ),                     \
                   "bcm_field_action_add( unit, entryId, bcmFieldAction" #Name ", " #p0 \
                   ", " #p1 " )",                                                       \
                   __LINE__ )
// Appends bcm_field_action_add( unit(), entryId, bcmFieldAction<Name>, p0, p1 ).
#define FP_ACTION( recipe, Name, p0, p1 )                                        \
   ( recipe ).add( ::Corvane::FpCall::action##Name, ( p0 ), ( p1 ),              \
                   "bcm_field_action_add( unit(), entryId, bcmFieldAction" #Name \
                   ", " #p0 ", " #p1 " )",                                       \
                   __LINE__ )
