#pragma once

// The journal: every call made through the SDK shim and every call of a TCAM entry
// manager, in the order they were made. One per process (journal()).
//
// A record carries the call's name (the SDK function's own name, or the entry
// manager's operation), the unit, the entry id where the call has one (for getEntry
// the id it returned, 0 when the group was full), the remaining arguments and the
// return code (entry-manager calls record 0). The journal starts enabled; a disabled
// journal records nothing (benchmarks). size() lets a caller slice it per step.
// A journal with a sink keeps nothing either: it hands each record to the sink as the
// call is made (a long-running tool that writes records out as they come).
// Like the agent, the journal is used from one thread.

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "platform/chip/Arg.h"

namespace Chip {

struct JournalRecord {
   std::string call;
   int unit = 0;
   bool hasEntry = false;
   U32 entry = 0;
   Args args;
   int rc = 0;

   // "bcm_field_qualify_SrcIp unit=1 entry=5 [167772161, 4294967295] rc=0"; without
   // an entry id the "entry=" part is left out.
   std::string stringValue() const;
};

class Journal {
public:
   bool enabled() const { return enabled_; }
   void enabledIs( bool enabled ) { enabled_ = enabled; }

   std::size_t size() const { return records_.size(); }
   JournalRecord const& record( std::size_t index ) const;
   std::vector<JournalRecord> const& records() const { return records_; }
   // The records from `first` on (a step's calls, given the size before the step).
   std::vector<JournalRecord> recordsFrom( std::size_t first ) const;

   // Appends a record when enabled, or hands it to the sink when there is one.
   void recordIs( JournalRecord record );
   void clear() { records_.clear(); }

   typedef std::function<void( JournalRecord const& )> Sink;
   // Null: records are kept again. The sink is called while the call is made; it must
   // not make calls that are journaled.
   void sinkIs( Sink sink ) { sink_ = std::move( sink ); }

private:
   bool enabled_ = true;
   Sink sink_;
   std::vector<JournalRecord> records_;
};

Journal& journal();

}  // namespace Chip
