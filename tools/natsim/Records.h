#pragma once

// What a natsim run records, in compact form: one plain struct per record of the result
// document (docs/scenario.md, "Result"), and one summary per step for the readable
// report. The SDK journal is not kept here: the simulation takes each step's calls off
// the platform's journal when the step ends, counts them into the step's summary and
// writes the ones the run keeps as JSON text (JournalSpool), so that nothing of the
// journal grows with the run in memory.
//
// Every record carries the index of the step that caused it; -1 is the agent's start.

#include <string>
#include <vector>

#include "platform/chip/FpEntry.h"
#include "platform/fwk/Types.h"

namespace natsim {

struct AnswerRecord {
   int step;
   U16 module;
   U32 uid;
   U32 result;
   U32 field;
};

struct EventRecord {
   int step;
   std::string name;
   std::string message;
};

struct ShowRecord {
   int step;
   std::string output;
   U32 slices;
};

struct PacketRecord {
   int step;
   int unit;
   // The NAT entry that matched; 0 when none did.
   U32 entry;
   std::string description;
   std::vector<Chip::ActionRecord> actions;
};

struct ProblemRecord {
   int step;
   std::string message;
};

// One step as the readable report's first table shows it.
struct StepRecord {
   explicit StepRecord( char const* kindName ) : kind( kindName ) {}

   char const* kind;
   // The SDK and entry-manager calls the step made (all of them, kept or not).
   U32 calls = 0;
   // Ids that getEntry returned (0: the group was full) and ids released, in order.
   std::vector<U32> taken;
   std::vector<U32> released;
};

// The records of a run, each list in the order its records were made.
struct Records {
   std::vector<AnswerRecord> answers;
   std::vector<EventRecord> events;
   std::vector<ShowRecord> shows;
   std::vector<PacketRecord> packets;
   std::vector<ProblemRecord> problems;
   // Indexed by step.
   std::vector<StepRecord> steps;
   // Every call of the run, kept or not.
   std::size_t calls = 0;

   // How many records each list holds (a position to cut back to).
   struct Marks {
      std::size_t answers, events, shows, packets, problems;
   };
   Marks marks() const {
      return { answers.size(), events.size(), shows.size(), packets.size(),
               problems.size() };
   }
   // Drops the records made after `marks`.
   void truncate( Marks const& marks ) {
      answers.resize( marks.answers );
      events.resize( marks.events );
      shows.resize( marks.shows );
      packets.resize( marks.packets );
      problems.resize( marks.problems );
   }
};

}  // namespace natsim
