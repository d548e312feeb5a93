#pragma once

// One entry of the chip's ingress field processor, as the chip holds it.
//
// An entry belongs to one TCAM group, has a priority (0 until set), a description given
// when it was allocated, the qualifiers set on it (each remembers what set it: data and
// mask truncated to the qualifier's width, IpFrag's selector, ExactMatch's arguments),
// its actions in the order they were added and a hit counter. Setting a qualifier again
// replaces it. An installed entry takes part in packet lookups; the install order is a
// sequence number of the unit taken when the entry was installed, 0 before that.
//
// Entries are changed only through their FieldProcessor, which keeps its lookup order
// in step; everyone else reads them.

#include <array>
#include <string>
#include <vector>

#include "platform/chip/Action.h"
#include "platform/chip/Arg.h"
#include "platform/chip/Packet.h"
#include "platform/chip/Qualifier.h"
#include "platform/fwk/Types.h"

namespace Chip {

// The data and mask of a qualifier, truncated to its width.
struct Masked {
   U32 data = 0;
   U32 mask = 0;
};

class FpEntry {
public:
   FpEntry( U32 id, U32 group, std::string description )
       : id_( id ), group_( group ), description_( std::move( description ) ) {
      // Room for the usual actions at once, rather than growing through 1, 2 and 4.
      actions_.reserve( 4 );
   }

   U32 id() const { return id_; }
   U32 group() const { return group_; }
   S32 priority() const { return priority_; }
   bool installed() const { return installed_; }
   U64 installOrder() const { return installOrder_; }
   U64 hits() const { return hits_; }
   std::string const& description() const { return description_; }

   bool qualifierHas( Qualifier qualifier ) const;
   // The data and mask of a qualifier that has them (not IpFrag); zero when not set.
   Masked qualifier( Qualifier qualifier ) const;
   IpFragSelector ipFrag() const { return ipFrag_; }
   U32 exactMatchInstance() const { return exactMatchInstance_; }
   ExactMatchField exactMatchField() const { return exactMatchField_; }
   // The qualifiers set, in the order of the enumeration.
   std::vector<Qualifier> qualifiers() const;
   // The arguments that set a qualifier, as the SDK call took them after unit and
   // entry: [data, mask]; IpFrag [selector name]; ExactMatch [instance, field name,
   // data, mask]. Empty when the qualifier is not set.
   Args qualifierArgs( Qualifier qualifier ) const;

   std::vector<ActionRecord> const& actions() const { return actions_; }

   // True when every qualifier set matches the packet. L4 port qualifiers never match
   // a non-first fragment.
   bool matches( Packet const& packet ) const;

private:
   friend class FieldProcessor;
   static U16 bit( Qualifier qualifier ) { return U16( 1u << unsigned( qualifier ) ); }
   bool masked( Qualifier qualifier, U32 value ) const;
   bool ipFragMatches( Frag frag ) const;

   U32 id_;
   U32 group_;
   S32 priority_ = 0;
   bool installed_ = false;
   U64 installOrder_ = 0;
   U64 hits_ = 0;
   std::string description_;
   U16 qualifiersSet_ = 0;
   std::array<Masked, qualifierCount> qualifiers_{};
   IpFragSelector ipFrag_ = IpFragSelector::Any;
   ExactMatchField exactMatchField_ = ExactMatchField::HitStatus;
   U32 exactMatchInstance_ = 0;
   std::vector<ActionRecord> actions_;
};

}  // namespace Chip
