#pragma once

// A natsim scenario: the chip and NAT configuration and the steps to play, as typed
// values.
//
// parseScenario() reads and checks the whole JSON document before anything is played,
// so a scenario either plays from start to end or is refused up front with the JSON
// path of the first fault. The structures are plain values; every member starts at the
// default a scenario gets when it leaves the member out. Members a scenario must give
// are marked "required" and start at zero.

#include <deque>
#include <map>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "platform/fwk/Types.h"
#include "platform/nat/NatHwData.h"
#include "platform/nat/NatHwKey.h"
#include "platform/nat/Wirel.h"

namespace natsim {

// Module 1 on unit 1. (Filled without an initializer list, which GCC 12 wrongly reports
// as maybe uninitialized when a map member is initialized from one.)
inline std::map<U16, U16> oneModule() {
   std::map<U16, U16> modules;
   modules[1] = 1;
   return modules;
}

struct ChipConfig {
   bool natSupported = true;
   // Module id -> SDK unit; the chip has one unit for each distinct value.
   std::map<U16, U16> modules = oneModule();
   // Entries of the NAT group per unit.
   U32 tcamEntries = 512;
   U32 pipes = 1;
   // False: the chip property under which a worker has no trap state machine.
   bool trapFilters = true;
   // Enables hit-counter polling.
   bool hitCounters = true;
   // The chip-family test that chooses the rows of the L4 port translation memory.
   bool familyTest = false;
   // The common data's hitless-restart flag.
   bool hitlessRestart = false;
   bool mountGroupReady = true;
   bool flashDownloadDone = true;
};

struct NatConfig {
   bool addrOnlyMode = false;
   bool fragmentEnabled = false;
};

// Upstream writes a rule: shadow entry, uid tables, module set, transaction request.
struct NatRuleStep {
   U32 uid = 0;  // required, 1 or more
   U16 mcastUid = 0;
   Oro::NatHwKey key;  // required
   Oro::NatHwData data;
   // Modules of the uid; when the scenario leaves it out, every module of chip.modules.
   std::vector<U16> modules;
   U32 dirty = 1;
   // Second field of the transaction request.
   U32 field = 0;
};

// Upstream marks the rule's shadow entry dirty 2 and publishes its transaction again.
struct NatRuleRemoveStep {
   U32 uid = 0;        // required, 1 or more
   Oro::NatHwKey key;  // required
   U32 field = 0;
};

struct TrapRule {
   U32 seq = 10;
   bool permit = true;
   Wirel::IpAddrWithFullMask src{ Wirel::IpAddr( 0x0a000000 ), Wirel::prefixMask( 8 ) };
   Wirel::IpAddrWithFullMask dst;  // 0.0.0.0/0
   bool pool = false;
};

// The trap ACL of key (name, vlan) is written whole into the trap config.
struct TrapAclStep {
   std::string name;  // required
   U16 vlan = 0;      // required
   bool implicitDeny = false;
   // Left out, the ACL holds one rule with every rule member at its default.
   std::vector<TrapRule> rules = { TrapRule() };
};

struct TrapAclRemoveStep {
   std::string name;  // required
   U16 vlan = 0;      // required
};

// The multicast translation mode becomes these types (their count included).
struct McastModeStep {
   std::vector<U32> types = { 5, 1, 2 };
};

// The chip-common module map gains or changes a module.
struct ModuleStep {
   U16 modId = 0;  // required
   U16 unit = 0;   // required
};

struct ModuleRemoveStep {
   U16 modId = 0;
};

struct MountGroupReadyStep {
   bool ready = true;
};

// An entry of the flash-download wait collection changes.
struct FlashDownloadStep {
   U32 req = 0;  // required
   bool done = true;
};

struct FragmentEnabledStep {
   bool enabled = false;
};

enum class Frag { none, first, notFirst };

// TCP flag bits of PacketStep::tcpFlags.
enum TcpFlag : U8 {
   tcpFin = 1,
   tcpSyn = 2,
   tcpRst = 4,
   tcpPsh = 8,
   tcpAck = 16,
   tcpUrg = 32,
};

// `count` packets enter the chip's field processor.
struct PacketStep {
   // Left out: the lowest unit of the chip.
   std::optional<U16> unit;
   U32 src = 0x0a000001;  // 10.0.0.1, host order
   U32 dst = 0x08080808;  // 8.8.8.8
   U8 proto = 6;
   U16 sport = 1234;
   U16 dport = 80;
   U16 vlan = 10;
   Frag frag = Frag::none;
   U8 tcpFlags = 0;  // TcpFlag bits
   bool emHit = false;
   bool myStation = true;
   U32 srcClass = 0;
   U32 count = 1;  // 1 or more
};

// The longest advance of one step, in seconds (about 11.6 days). Every timer that falls
// due on the way fires, so a much longer advance would keep natsim busy for hours.
constexpr double advanceSecondsMax = 1e6;

// Virtual time moves on; due timers fire.
struct AdvanceStep {
   double seconds = 0;
};

// The command goes to the plug-in's command callback.
struct ShowStep {
   std::string command;
};

// doVerify of the worker of the module runs.
struct VerifyStep {
   U16 modId = 0;
};

// The chip's SDK shim is told to fail a call: the nth next call named `call` returns
// `rc` once and changes nothing. Only calls the shim journals can fail this way.
struct SdkFailureStep {
   std::string call;  // required, one of sdkFailureCalls()
   int rc = 0;        // required, negative
   U32 nth = 1;       // 1 or more
};

// The names an sdkFailure step may give, in the shim's order.
std::vector<char const*> const& sdkFailureCalls();

// The agent restarts as after a crash and comes up by a hitless restart; written as
// {"restart": {}}.
struct RestartStep {};

// One step of a scenario; the alternatives are in the order of stepKindNames().
typedef std::variant<NatRuleStep, NatRuleRemoveStep, TrapAclStep, TrapAclRemoveStep,
                     McastModeStep, ModuleStep, ModuleRemoveStep, MountGroupReadyStep,
                     FlashDownloadStep, FragmentEnabledStep, PacketStep, AdvanceStep,
                     ShowStep, VerifyStep, SdkFailureStep, RestartStep>
    Step;

// The step's name in a scenario ("natRule", "advance", ...), for reports.
char const* stepKindName( Step const& step );
// Every step name, in the order of Step's alternatives.
std::vector<char const*> const& stepKindNames();

// A deque: a long list grows without moving the steps read so far, and gives back its
// memory from the front as the steps are played.
typedef std::deque<Step> Steps;

struct Scenario {
   std::string agent = "Corvane";
   ChipConfig chip;
   NatConfig nat;
   Steps steps;
};

// Where a scenario is wrong and what is wrong there. The path is the JSON path of the
// faulty value ("steps[3].natRule.key.srcOld", "chip.modules.1"), of the object that
// misses or has too many members, "line 4, column 7" for a document that is not JSON,
// or empty for the document as a whole.
struct ScenarioError {
   std::string path;
   std::string message;
   // For a fault found after the text was parsed, where the value at `path` starts:
   // "line 4, column 7"; else empty.
   std::string at = {};
   // "<path> (<at>): <message>", "<path>: <message>", or the message alone when the
   // path is empty.
   std::string what() const;
};

// The largest scenario file natsim reads, in bytes (64 MiB).
constexpr std::size_t scenarioFileBytesMax = std::size_t( 64 ) << 20;

// Reads the scenario file `file` into `*text`. False, with a message for the file as a
// whole (empty path), when it cannot be opened or read, is a directory, or is larger
// than scenarioFileBytesMax; `*text` is then unspecified.
bool readScenarioFile( std::string const& file, std::string* text, ScenarioError* error );

// Reads the whole scenario in `text`. On success fills `*out` and returns true; on the
// first fault fills `*error`, leaves `*out` as it was and returns false. Any text is
// taken: an empty one, bytes that are not UTF-8 or a NUL byte, numbers beyond a
// double and nesting of any depth are faults like any other. Nothing is thrown.
bool parseScenario( std::string const& text, Scenario* out, ScenarioError* error );

// Reads one step in `text`, written as an element of a scenario's "steps"
// ({"natRule": {...}}), with the defaults it would get in a scenario on `chip`. Faults
// are found as by parseScenario(); their paths start at the step's name
// ("natRule.key.srcOld"), and a fault of the step as a whole has an empty path. A step is
// one line: faults found after parsing carry no line.
bool parseStep( std::string const& text, ChipConfig const& chip, Step* out,
                ScenarioError* error );

}  // namespace natsim
