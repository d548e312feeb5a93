// The recipes of NAT trap entries, and the descriptions they are requested with.

#include "CorvaneNat/TrapEntryRecipe.h"

#include <utility>

#include "CorvaneNat/DescriptionText.h"
#include "CorvaneNat/NatConstants.h"

namespace CorvaneNat {

using Corvane::IPPROTO_TCP;

namespace {

// Rule entries sit above the implicit-deny entry, which only catches what no rule
// matched.
constexpr S32 trapEntryPriority = 1;
constexpr S32 implicitDenyPriority = 0;

char const* hitWord( bool emHit ) {
   return emHit ? "  EM_HIT" : " !EM_HIT";
}

void appendAddresses( Corvane::DescriptionText& text, Oro::NatTrapRule const& rule ) {
   bool const srcZero = rule.srcIp().address().isZero();
   bool const dstZero = rule.dstIp().address().isZero();
   if ( srcZero && dstZero ) {
      text << " any";
      return;
   }
   if ( !srcZero ) {
      text << " src=" << rule.srcIp();
   }
   if ( !dstZero ) {
      text << " dst=" << rule.dstIp();
   }
}

char const* tcpControlWord( TcpControl tcpControl ) {
   if ( tcpControl == TcpControl::SYN ) {
      return " SYN";
   }
   if ( tcpControl == TcpControl::FIN ) {
      return " FIN";
   }
   if ( tcpControl == TcpControl::RST ) {
      return " RST";
   }
   return "";
}

char const* outcomeText( Oro::NatTrapRule const& rule, bool emHit,
                         TcpControl tcpControl ) {
   if ( !emHit ) {
      return rule.permit() ? " IP => CPU" : " => SkipNat";
   }
   if ( tcpControl != TcpControl::none ) {
      return " => CPU";
   }
   return rule.permit() ? " IP => Nat" : " => SkipNat";
}

// The description of a trap or TCP control entry.
std::string tcamEntryDescription( Oro::NatTrapRule const& rule, bool emHit,
                                  TcpControl tcpControl ) {
   Corvane::DescriptionText text;
   text << "NAT acl: " << hitWord( emHit );
   appendAddresses( text, rule );
   if ( !rule.permit() ) {
      text << " deny";
   }
   if ( rule.pool() ) {
      text << " pool:";
   }
   text << tcpControlWord( tcpControl ) << outcomeText( rule, emHit, tcpControl );
   return text.str();
}

// The description of a NAT pool entry.
std::string reverseEntryDescription( Oro::NatTrapRule const& rule, bool emHit,
                                     bool tcpCheck, bool tcpControl ) {
   Corvane::DescriptionText text;
   text << "NAT pool:" << hitWord( emHit ) << " dst=" << rule.dstIp();
   if ( !emHit ) {
      text << " IP => CPU";
   } else if ( !tcpCheck ) {
      text << " IP => Skip CPU";
   } else if ( tcpControl ) {
      text << " TCP_CTRL => CPU";
   } else {
      text << " TCP_DATA => Skip CPU";
   }
   return text.str();
}

}  // namespace

TrapEntryRecipe::TrapEntryRecipe( std::string description, S32 priority,
                                  char const* function )
    : FpEntryRecipe( Corvane::natTcamGroupAssignment, priority, __FILE__, function ),
      description_( std::move( description ) ) {}

void trapToCpuActions( Corvane::FpEntryRecipe& recipe ) {
   recipe.functionIs( "setTrapToCpuAction" );
   FP_UNIT_ACTION( recipe, CopyToCpu, 0, 0 );
   FP_UNIT_ACTION( recipe, Drop, 0, 0 );
   FP_UNIT_ACTION( recipe, CosQCpuNew, cpuCosqNat_, 0 );
}

void skipCpuActions( Corvane::FpEntryRecipe& recipe ) {
   recipe.functionIs( "setSkipCpuAction" );
   FP_UNIT_ACTION( recipe, CopyToCpuCancel, 0, 0 );
   FP_UNIT_ACTION( recipe, DropCancel, 0, 0 );
}

void skipEvxltActions( Corvane::FpEntryRecipe& recipe ) {
   recipe.functionIs( "setSkipEvxltAction" );
   // Extraction control 0 under the full mask: no egress rewrite.
   FP_UNIT_ACTION( recipe, AssignExtractionCtrlId, 0, 0x1f );
}

TrapEntryRecipe trapEntryRecipe( Oro::NatTrapRule const& rule, U16 vlanId, bool emHit ) {
   char const* const function = "programTrapEntry";
   TrapEntryRecipe recipe( tcamEntryDescription( rule, emHit, TcpControl::none ),
                           trapEntryPriority, function );
   // The action comes before the qualifiers.
   if ( !emHit && rule.permit() ) {
      trapToCpuActions( recipe );
   } else if ( emHit && !rule.permit() ) {
      skipEvxltActions( recipe );
   }
   recipe.functionIs( function );
   FP_QUALIFY( recipe, MyStationHit, 1, 1 );
   FP_QUALIFY( recipe, SrcClassField, 0, Corvane::classVfpAclDrop_ );
   FP_QUALIFY( recipe, SrcIp, rule.srcIp().address().value(), rule.srcIp().mask() );
   FP_QUALIFY( recipe, DstIp, rule.dstIp().address().value(), rule.dstIp().mask() );
   // Pool rules are programmed as reverse entries; a pool rule passed here still
   // matches only its VLAN, as a trap entry of a pool must.
   if ( rule.pool() ) {
      FP_QUALIFY( recipe, L3Ingress, vlanId, -1 );
   }
   FP_QUALIFY_EXACT_MATCH( recipe, 0, bcmFieldQualifyExactMatchHitStatus, emHit, 0x1 );
   return recipe;
}

TrapEntryRecipe tcpControlEntryRecipe( Oro::NatTrapRule const& rule,
                                       TcpControl tcpControl ) {
   TrapEntryRecipe recipe( tcamEntryDescription( rule, true, tcpControl ),
                           trapEntryPriority, "programTcpControlEntry" );
   FP_QUALIFY_EXACT_MATCH( recipe, 0, bcmFieldQualifyExactMatchHitStatus, 1, 0x1 );
   FP_QUALIFY( recipe, MyStationHit, 1, 1 );
   FP_QUALIFY( recipe, SrcClassField, 0, Corvane::classVfpAclDrop_ );
   FP_QUALIFY( recipe, IpProtocol, IPPROTO_TCP, 0xff );
   // Only the low byte is the flag; a flag other than FIN, SYN or RST is still written.
   U8 const flag = U8( tcpControl.value() & 0xff );
   FP_QUALIFY( recipe, TcpControl, flag, TcpControl::mask_ );
   FP_QUALIFY( recipe, SrcIp, rule.srcIp().address().value(), rule.srcIp().mask() );
   FP_QUALIFY( recipe, DstIp, rule.dstIp().address().value(), rule.dstIp().mask() );
   trapToCpuActions( recipe );
   return recipe;
}

TrapEntryRecipe reverseTrapEntryRecipe( Oro::NatTrapRule const& rule, bool emHit,
                                        bool tcpCheck, bool tcpControl ) {
   TrapEntryRecipe recipe( reverseEntryDescription( rule, emHit, tcpCheck, tcpControl ),
                           trapEntryPriority, "programReverseTrapEntry" );
   FP_QUALIFY( recipe, MyStationHit, 1, 1 );
   FP_QUALIFY( recipe, SrcClassField, 0, Corvane::classVfpAclDrop_ );
   FP_QUALIFY_EXACT_MATCH( recipe, 0, bcmFieldQualifyExactMatchHitStatus, emHit, 0x1 );
   FP_QUALIFY( recipe, DstIp, rule.dstIp().address().value(), rule.dstIp().mask() );
   if ( emHit && tcpCheck ) {
      FP_QUALIFY( recipe, IpProtocol, IPPROTO_TCP, 0xff );
      // The TCP control entry has no flag qualifier: it takes the TCP that the data
      // entry, allocated before it, leaves over.
      if ( !tcpControl ) {
         FP_QUALIFY( recipe, TcpControl, 0, TcpControl::mask_ );
      }
   }
   if ( !emHit || ( tcpCheck && tcpControl ) ) {
      trapToCpuActions( recipe );
   } else {
      skipCpuActions( recipe );
   }
   return recipe;
}

TrapEntryRecipe implicitDenyEntryRecipe() {
   TrapEntryRecipe recipe( "NAT acl:   EM_HIT Implicit deny =>", implicitDenyPriority,
                           "programImplicitDenyEntry" );
   FP_QUALIFY( recipe, MyStationHit, 1, 1 );
   FP_QUALIFY( recipe, SrcClassField, 0, Corvane::classVfpAclDrop_ );
   FP_QUALIFY_EXACT_MATCH( recipe, 0, bcmFieldQualifyExactMatchHitStatus, 1, 1 );
   skipEvxltActions( recipe );
   return recipe;
}

}  // namespace CorvaneNat
