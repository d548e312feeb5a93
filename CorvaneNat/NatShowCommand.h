#pragma once

// The show command "ShowCorvaneNatSlice": the worker's entry-id table joined with the
// shadow, written as JSON to the requester in slices.
//
// NatCliCallback is the plug-in's command callback (type "Corvane::NatCliCallback",
// created with its name). For a command that contains "ShowCorvaneNatSlice" it finds the
// worker through the process's mounter and its root (there must be exactly one worker)
// and creates a NatSliceCommandRequestSm; any other command is unknown and gets none.
// The request's time quantum is 0.05 s, or 0.0 on a simulated chip (SIMULATION_VMID set
// and USE_BCMSIM not set) so that a simulation yields after every row.
//
// Output (docs/show-command.md has the full description and an example). The whole
// output is one line, "[" then the row objects then "]":
//
//   {"hwKey": "<key text>, vlan: <vlan>","eid0": "<ids>","eid1": "<ids>",
//    "aclId": <u32>,"filterAddr": "<addr>/<len>","uid": <u32>,"dirty": <int>,
//    "nextHop": <u64>,"multicast": <0|1>,},
//
// - One object per VLAN of an entry-id table row, VLANs ascending; the objects of one
//   key follow each other. <key text> is the key's text form (NatHwKey::stringValue();
//   a key type whose name is longer than 32 characters stops the process, see
//   boundedCopy).
//   <vlan> is the VLAN id in decimal, "*" for VLAN 0 (an entry that matches on every
//   VLAN: source-side keys are installed once, without an ingress VLAN), and "none" for
//   a row that holds no entry at all (its key got no TCAM room); such a row writes one
//   object without eid fields.
// - "eid0" is the VLAN's default entry, "eid1" its fragment entry; each is written only
//   when the row holds it. The value is the entry id in decimal; on a chip that holds an
//   entry in more than one place (several pipes, or several copies in a pipe) the id is
//   followed by the ids of every place from the TCAM group manager, pipe by pipe:
//   "5 pipe0: 5 pipe1: 16777221". An entry id 0 has no places.
// - "aclId" comes from the key and is always written. "filterAddr", "uid", "dirty",
//   "nextHop" and "multicast" come from the key's shadow entry and are written only
//   when the shadow holds the key; a row without them belongs to a key that upstream
//   no longer publishes.
// - Every field carries a trailing comma, the last one too, and every object is
//   followed by ","; readers accept "," before "}" and "]". The texts hold no quote or
//   backslash, so nothing is escaped.
//
// Slicing. After each row the request asks shouldYield(); when told to yield it keeps
// the row's key as its bookmark and returns; the framework runs the next slice later.
// A slice that finds its bookmark gone from the table ends the output with "]".
// Otherwise it resumes right after the bookmark in the table's own order (insertion
// order, EntryIdTable::first and next), which neither rehashes nor other rows coming
// and going change: every row present for the whole command is written exactly once,
// rows removed between slices are not written, and rows inserted between slices come
// last and are written. The command shows the table the worker had when it began.
//
// Traces ("ApiCorvane"): 0 for refused commands, 8 for the request's steps, 9 for each
// row ("Iterating on: ").

#include <cstddef>
#include <string>
#include <vector>

#include "CorvaneNat/NatWorkerSm.h"
#include "platform/agent/AgentCommand.h"

namespace Corvane {

// Copies the `size` bytes of `value`, a value of fixed maximum size `bound` (a number,
// an address or a name in text), to `out` and returns the end of the copy. A larger
// value stops the process with "expected size <= <bound>, instead got <size>. Buffer is
// at address: <address> with contents: <value>": the writer sizes its text from the
// bounds.
char* boundedCopy( char* out, char const* value, std::size_t size, std::size_t bound );

// What a row shows of its key's shadow entry. The walk reads these for several rows
// ahead of writing them: the fields lie apart in a large entry, and read side by side
// for several rows their memory loads overlap.
struct NatShowShadowFields {
   bool present = false;  // the key has a shadow entry
   Wirel::IpAddrWithFullMask filterAddr;
   U32 uid = 0;
   S32 dirty = 0;
   U64 nextHop = 0;
   bool multicast = false;
};

// Appends text to storage, checked against its end (NatShowCommand.cpp).
class ShowCursor;

class NatSliceCommandRequestSm : public Agent::AgentAsyncCommandRequestSm {
public:
   typedef Fwk::Ptr<NatSliceCommandRequestSm> Ptr;

   NatWorkerSm* worker() const { return worker_.ptr(); }

   // The key of the last row written; the default key before the first slice.
   Oro::NatHwKey const& entryBookmark() const { return entryBookmark_; }
   void entryBookmarkIs( Oro::NatHwKey const& key ) { entryBookmark_ = key; }

   // Traces the flag, then lets the base start running the command once initialized.
   void handleInitialized() override;
   // Writes one slice of the output; see the design note.
   void handleAsyncCommand( int socket, std::string const& format ) override;

protected:
   NatSliceCommandRequestSm( std::string name, Agent::AgentCommandRequest request,
                             Fwk::Seconds quantum, Fwk::Clock::Ptr clock,
                             NatWorkerSm::Ptr worker );

private:
   friend Ptr natSliceCommandRequestSmFactory( std::string const& name,
                                               Agent::AgentCommandRequest const& request,
                                               Fwk::Seconds quantum,
                                               Fwk::Clock::Ptr const& clock,
                                               NatWorkerSm::Ptr const& worker );

   void pipeLayoutIs();
   void writeRow( EntryIdTableEntry const& row, NatShowShadowFields const& shadow );
   void writeEntry( ShowCursor& out, U32 index, U32 entryId ) const;

   NatWorkerSm::Ptr worker_;
   Oro::NatHwKey entryBookmark_;

   // The table the command shows: the worker's when the command began.
   EntryIdTable::PtrConst table_;

   // The unit's copies of an entry per pipe, read at the start of each slice, whether
   // an entry's places are written, and the most text an entry takes.
   std::vector<U32> copiesPerPipe_;
   bool pipeIds_ = false;
   std::size_t entryTextMax_ = 0;

   // The text of a row, reused from row to row.
   std::string rowText_;
};

// Creates the request state machine of a show command for `worker`.
NatSliceCommandRequestSm::Ptr natSliceCommandRequestSmFactory(
    std::string const& name, Agent::AgentCommandRequest const& request,
    Fwk::Seconds quantum, Fwk::Clock::Ptr const& clock, NatWorkerSm::Ptr const& worker );
NatSliceCommandRequestSm::Ptr NatSliceCommandRequestSmIs(
    std::string const& name, Agent::AgentCommandRequest const& request,
    Fwk::Seconds quantum, Fwk::Clock::Ptr const& clock, NatWorkerSm::Ptr const& worker );

class NatCliCallback : public Agent::AgentCommandCallback {
public:
   typedef Fwk::Ptr<NatCliCallback> Ptr;

   explicit NatCliCallback( std::string name );

   // The request of "ShowCorvaneNatSlice" for the only worker, or null: for any other
   // command, and when the mounter or its root does not exist (yet). More or fewer than
   // one worker stops the process.
   Agent::AgentAsyncCommandRequestSm::Ptr createAgentAsyncCommandRequestSm(
       Agent::AgentCommandRequest const& request ) override;
};

}  // namespace Corvane
