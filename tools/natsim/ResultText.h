#pragma once

// The result document (docs/scenario.md, "Result") as JSON text, written as a stream:
// each record is formatted on its own line as it is written, so that writing the
// result of a million calls builds no document in memory. The same record writers make
// a served step's answer line.

#include <ostream>
#include <string>

#include "platform/chip/Journal.h"
#include "platform/chip/Table.h"
#include "tools/natsim/Records.h"

namespace natsim {

class Simulation;

void appendJournalRecord( std::string& out, int step, Chip::JournalRecord const& record );
// A memory's or register's row, its reported fields: {"XLATE_ENABLE":3}.
void appendJsonRow( std::string& out, Chip::Table const& table, unsigned row );

// A served step's answer: {"step":..,"kind":..,"answers":[..],"events":[..],
// "journal":[..],"show":[..],"packets":[..],"problems":[..]}, each array holding the
// records made after `marks`. `journal` is the step's kept journal records, already
// JSON text separated by commas.
std::string stepAnswer( int step, Records const& records, Records::Marks const& marks,
                        std::string const& journal );

// The whole result document of a played simulation. With `withJournal` false, its
// journal is written as an empty list (the journal went elsewhere).
void writeResult( std::ostream& out, Simulation const& simulation, bool withJournal );

// The kept journal records as a JSON array, one record per line.
void writeJournal( std::ostream& out, Simulation const& simulation );

}  // namespace natsim
