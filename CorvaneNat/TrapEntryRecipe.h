#pragma once

// What each NAT trap entry holds, stated once: description, group, priority, and the
// actions and qualifiers in call order, for the four kinds of entries the trap state
// machine asks for (rule trap entries, their TCP control entries, NAT pool entries and
// the shared implicit-deny entry). Pure functions: no SDK call, nothing written.

#include <string>

#include "CorvaneNat/CorvaneNatTrapSm.h"
#include "CorvaneNat/FpEntryRecipe.h"

namespace CorvaneNat {

class TrapEntryRecipe : public Corvane::FpEntryRecipe {
public:
   TrapEntryRecipe( std::string description, S32 priority, char const* function );
   // Handed to the entry manager with the request for the entry.
   std::string const& description() const { return description_; }
   // The description moved out, for the request (an entry's one copy of it).
   std::string descriptionTaken() { return std::move( description_ ); }

private:
   std::string description_;
};

// The trap entry of a (non-pool) rule, without or with exact-match hit. Its action
// (to the CPU for a permitting rule without hit, skip egress translation for a denying
// rule with hit, else none) comes before its qualifiers; `vlanId` is matched only for a
// pool rule.
TrapEntryRecipe trapEntryRecipe( Oro::NatTrapRule const& rule, U16 vlanId, bool emHit );
// The entry of a permitting rule with hit that sends TCP packets with `tcpControl` to
// the CPU.
TrapEntryRecipe tcpControlEntryRecipe( Oro::NatTrapRule const& rule,
                                       TcpControl tcpControl );
// A NAT pool entry: without hit to the CPU; with hit and without `tcpCheck` skipping the
// CPU; with `tcpCheck` TCP data (`tcpControl` false) skipping it, or the TCP left over
// (`tcpControl` true) to the CPU.
TrapEntryRecipe reverseTrapEntryRecipe( Oro::NatTrapRule const& rule, bool emHit,
                                        bool tcpCheck, bool tcpControl );
// The implicit-deny entry, priority 0: below every rule entry.
TrapEntryRecipe implicitDenyEntryRecipe();

// The actions of trap entries (TrapSm::setTrapToCpuAction and the others), appended to
// `recipe` and traced under those operations' names.
void trapToCpuActions( Corvane::FpEntryRecipe& recipe );
void skipCpuActions( Corvane::FpEntryRecipe& recipe );
void skipEvxltActions( Corvane::FpEntryRecipe& recipe );

}  // namespace CorvaneNat
