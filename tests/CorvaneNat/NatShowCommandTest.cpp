// The show command "ShowCorvaneNatSlice": the text it writes for rules as upstream
// publishes them, how it slices and resumes (also when rows come and go between slices
// and when the table rehashes), the time quantum, and the commands and states it refuses.

#include "NatTestFixture.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <map>

#include "CorvaneNat/NatShowCommand.h"
#include "platform/agent/PluginLoader.h"
#include "platform/fwk/Trace.h"

namespace {

using NatTest::ipPort;
using NatTest::Key;
using NatTest::NatFixture;
using NatTest::natKey;
using ::testing::AnyOf;
using ::testing::Contains;
using ::testing::Eq;
using ::testing::HasSubstr;
using ::testing::Not;

char const showCommand[] = "ShowCorvaneNatSlice";

// A file standing in for the requester's socket.
class TempSocket {
public:
   TempSocket() : file_( std::tmpfile() ) {}
   ~TempSocket() { std::fclose( file_ ); }
   int fd() const { return fileno( file_ ); }
   std::string text() const {
      std::string out;
      char buffer[4096];
      off_t offset = 0;
      ssize_t n;
      while ( ( n = ::pread( fd(), buffer, sizeof( buffer ), offset ) ) > 0 ) {
         out.append( buffer, std::size_t( n ) );
         offset += n;
      }
      return out;
   }
   // What was written since the last call.
   std::string news() {
      std::string all = text();
      std::string fresh = all.substr( seen_ );
      seen_ = all.size();
      return fresh;
   }

private:
   std::FILE* file_;
   std::size_t seen_ = 0;
};

// Sets (or, with null, unsets) an environment variable for the life of a scope.
class ScopedEnv {
public:
   ScopedEnv( char const* name, char const* value ) : name_( name ) {
      if ( char const* old = std::getenv( name ) ) {
         had_ = true;
         old_ = old;
      }
      if ( value ) {
         ::setenv( name, value, 1 );
      } else {
         ::unsetenv( name );
      }
   }
   ~ScopedEnv() {
      if ( had_ ) {
         ::setenv( name_, old_.c_str(), 1 );
      } else {
         ::unsetenv( name_ );
      }
   }

private:
   char const* name_;
   bool had_ = false;
   std::string old_;
};

// The objects of an output, "[" {...}, ... "]", each without its trailing comma; the
// texts hold no braces, so the objects are found by their delimiters.
std::vector<std::string> objects( std::string const& output ) {
   std::vector<std::string> out;
   EXPECT_TRUE( output.size() >= 2 && output.front() == '[' && output.back() == ']' )
       << output;
   std::size_t at = 1;
   while ( at + 1 < output.size() ) {
      std::size_t const end = output.find( "},", at );
      EXPECT_EQ( output[at], '{' ) << output.substr( at );
      if ( end == std::string::npos ) {
         ADD_FAILURE() << "unterminated object: " << output.substr( at );
         break;
      }
      out.push_back( output.substr( at, end + 1 - at ) );
      at = end + 2;
   }
   return out;
}

// The "hwKey" value of an object: the key's text and its VLAN.
std::string hwKeyOf( std::string const& object ) {
   std::string const open = "{\"hwKey\": \"";
   EXPECT_EQ( object.compare( 0, open.size(), open ), 0 ) << object;
   std::size_t const end = object.find( "\",", open.size() );
   return object.substr( open.size(), end - open.size() );
}

std::map<std::string, int> hwKeyCounts( std::string const& output ) {
   std::map<std::string, int> counts;
   for ( std::string const& object : objects( output ) ) {
      ++counts[hwKeyOf( object )];
   }
   return counts;
}

// Every object of `after` written once, and every object of `before` there, except
// those of the key `gone` (the text of a removed key, or empty).
void expectEachOnceNoneLost( std::map<std::string, int> const& before,
                             std::map<std::string, int> const& after,
                             std::string const& gone = "" ) {
   for ( auto const& object : after ) {
      EXPECT_EQ( object.second, 1 ) << "written twice: " << object.first;
   }
   for ( auto const& object : before ) {
      bool const removed = !gone.empty() && object.first.rfind( gone, 0 ) == 0;
      EXPECT_EQ( after.count( object.first ), removed ? 0u : 1u ) << object.first;
   }
}

Oro::NatHwData dataOn( std::vector<U16> vlans, U64 nextHop = 5 ) {
   Oro::NatHwData data( 0, {}, 0, nextHop, false, 0, false, true );
   for ( U16 vlan : vlans ) {
      data.vlanIdAppend( vlan );
   }
   return data;
}

class NatShowCommand : public NatFixture {
protected:
   struct Run {
      Agent::AgentAsyncCommandRequestSm::Ptr request;
      std::string output;
   };
   // Runs a command as the agent does, to completion.
   Run show( std::string const& command = showCommand,
             std::size_t maxBufferSize =
                 Agent::AgentAsyncCommandRequestSm::defaultMaxBufferSize ) {
      TempSocket socket;
      Agent::AgentCommandRequest request;
      request.command = command;
      request.socket = socket.fd();
      Run run;
      run.request = Agent::runAgentCommand( *callback, request );
      if ( run.request ) {
         run.request->maxBufferSizeIs( maxBufferSize );
      }
      loop().runUntilIdle();
      if ( run.request ) {
         EXPECT_TRUE( run.request->executionCompleted() );
         run.request->hasNotificationActiveIs( false );
      }
      run.output = socket.text();
      return run;
   }

   // A request driven slice by slice by the test. By default it yields after every row
   // and every piece of output reaches the socket at once; with `bytesPerSlice` a
   // slice writes rows until its buffer holds that much, and is then written out.
   struct HandDriven {
      explicit HandDriven( Corvane::NatWorkerSm* worker, std::size_t bytesPerSlice = 0 )
          : bytesPerSlice( bytesPerSlice ) {
         Agent::AgentCommandRequest r;
         r.command = showCommand;
         r.socket = socket.fd();
         request = Corvane::NatSliceCommandRequestSmIs(
             "show", r, bytesPerSlice ? 1.0 : 0.0, Fwk::activityManager().clockPtr(),
             worker );
         request->maxBufferSizeIs( bytesPerSlice );
         // The test runs the slices; the event loop does not.
         request->hasNotificationActiveIs( false );
      }
      std::string slice() {
         if ( bytesPerSlice ) {
            request->runCommand();
         } else {
            request->handleAsyncCommand( socket.fd(), "json" );
         }
         return socket.news();
      }
      // Runs the remaining slices; returns their output.
      std::string finish() {
         std::string out;
         for ( int i = 0; i < 100000 && !request->executionCompleted(); ++i ) {
            out += slice();
         }
         EXPECT_TRUE( request->executionCompleted() );
         return out;
      }
      std::size_t bytesPerSlice;
      TempSocket socket;
      Corvane::NatSliceCommandRequestSm::Ptr request;
   };

   // Publishes `count` rules, uids from `firstUid`: source rules (one entry, VLAN "*")
   // and destination rules on one or two VLANs, with ports on some.
   void rules( U32 firstUid, U32 count ) {
      for ( U32 uid = firstUid; uid < firstUid + count; ++uid ) {
         Wirel::IpAddr const old( 0x0a000000 + uid );
         Oro::NatHwKey key;
         Oro::NatHwData data;
         if ( uid % 2 ) {
            key = natKey( Key::staticSrcNat, Wirel::IpAndPort( old, 0 ),
                          ipPort( "203.0.113.1" ) );
         } else {
            key = natKey( Key::staticDstNat, {}, {},
                          Wirel::IpAndPort( old, uid % 4 ? 0 : 80 ),
                          ipPort( "10.1.1.1", uid % 4 ? 0 : 8080 ) );
            data = uid % 3 ? dataOn( { 10 } ) : dataOn( { 20, 30 } );
         }
         rule( uid, key, data );
         keys[uid] = key;
      }
   }

   Corvane::EntryIdTable* table() { return worker()->entryIdTable(); }
   Corvane::NatCliCallback::Ptr callback = new Corvane::NatCliCallback( "natCli" );
   std::map<U32, Oro::NatHwKey> keys;
};

// --- What the output says ---------------------------------------------------------

TEST_F( NatShowCommand, AnEmptyTableWritesOnlyTheBrackets ) {
   start();
   Run run = show();
   ASSERT_TRUE( run.request );
   EXPECT_EQ( run.output, "[]" );
   EXPECT_EQ( run.request->slices(), 1u );
   TearDown();
   chip.flashDownloadDone = false;  // a worker that has not initialized has no table
   start();
   EXPECT_EQ( show().output, "[]" );
}

TEST_F( NatShowCommand, ExactOutputOfASmallTableWithItsTrailingCommas ) {
   nat.fragmentEnabled = true;
   start();
   // A source rule: one entry, not bound to a VLAN.
   rule( 1, natKey( Key::staticSrcNat, ipPort( "10.0.0.1" ), ipPort( "203.0.113.1" ) ) );
   EXPECT_EQ( show().output,
              "[{\"hwKey\": \"type: staticSrcNat, old sip: 10.0.0.1:0, new sip: "
              "203.0.113.1:0, proto: 0, faId: 0, aclId: 0, reverse: false, vlan: *\","
              "\"eid0\": \"1\",\"aclId\": 0,\"filterAddr\": \"0.0.0.0/0\",\"uid\": 1,"
              "\"dirty\": 0,\"nextHop\": 0,\"multicast\": 0,},]" );

   // A destination NAPT rule on two VLANs: an object per VLAN, each with its default
   // and fragment entry and the shared fields of the key and its shadow data.
   Oro::NatHwKey const napt =
       natKey( Key::staticDstNat, {}, {}, ipPort( "203.0.113.80", 80 ),
               ipPort( "10.0.0.80", 8080 ), 0, 7 );
   Oro::NatHwData data = dataOn( { 20, 10 }, 0x8000002 );
   data.filterAddrIs( Wirel::IpAddrWithFullMask( Wirel::IpAddr( 0xc0000200 ),
                                                 Wirel::prefixMask( 24 ) ) );
   rule( 2, napt, data );
   std::string const common =
       "\"aclId\": 7,\"filterAddr\": \"192.0.2.0/24\",\"uid\": 2,\"dirty\": 0,"
       "\"nextHop\": 134217730,\"multicast\": 0,},";
   std::string const key =
       "{\"hwKey\": \"type: staticDstNat, old dip: 203.0.113.80:80, new dip: "
       "10.0.0.80:8080, proto: 0, faId: 0, aclId: 7, reverse: false, vlan: ";
   std::string const rowOf2 = key + "10\",\"eid0\": \"4\",\"eid1\": \"5\"," + common +
                              key + "20\",\"eid0\": \"2\",\"eid1\": \"3\"," + common;
   std::string const rowOf1 =
       "{\"hwKey\": \"type: staticSrcNat, old sip: 10.0.0.1:0, new sip: "
       "203.0.113.1:0, proto: 0, faId: 0, aclId: 0, reverse: false, vlan: *\","
       "\"eid0\": \"1\",\"aclId\": 0,\"filterAddr\": \"0.0.0.0/0\",\"uid\": 1,"
       "\"dirty\": 0,\"nextHop\": 0,\"multicast\": 0,},";
   EXPECT_THAT( show().output, AnyOf( Eq( "[" + rowOf1 + rowOf2 + "]" ),
                                      Eq( "[" + rowOf2 + rowOf1 + "]" ) ) );
}

TEST_F( NatShowCommand, ShadowFieldsShowPendingStateAndNonPrefixMasks ) {
   start();
   Oro::NatHwKey const key =
       natKey( Key::staticDstNat, {}, {}, ipPort( "203.0.113.9" ), ipPort( "10.0.0.9" ) );
   Oro::NatHwData data = dataOn( { 10 }, ~U64( 0 ) );
   rule( 9, key, data );
   // Upstream rewrites the shadow entry (a pending change, a mask that is not a prefix,
   // a multicast translation) before the worker has seen a transaction for it.
   auto shadow =
       platform->agent().sharedMem->getEntity<Oro::NatHwShadow>( "corvanenat/hwShadow" );
   ASSERT_TRUE( shadow );
   Oro::NatHwShadowEntry entry = *shadow->entry( key );
   data.filterAddrIs(
       Wirel::IpAddrWithFullMask( Wirel::IpAddr( 0x0a000000 ), 0xff00ff00 ) );
   data.multicastIs( true );
   entry.dataIs( data );
   entry.dirtyIs( Oro::NatHwShadowEntry::programPending );
   shadow->entryIs( entry );
   EXPECT_THAT(
       show().output,
       HasSubstr( "\"filterAddr\": \"10.0.0.0/255.0.255.0\",\"uid\": 9,\"dirty\": "
                  "1,\"nextHop\": 18446744073709551615,\"multicast\": 1,},]" ) );
}

TEST_F( NatShowCommand, RowsWithoutShadowEntryOrWithoutEntries ) {
   start();
   // A row whose key upstream no longer publishes: the key's fields only.
   Oro::NatHwKey const orphan = natKey(
       Key::staticDstNat, {}, {}, ipPort( "203.0.113.7" ), ipPort( "10.0.0.7" ), 0, 3 );
   Corvane::EntryIdTableEntry row( orphan );
   row.defaultEntryIdIs( 10, 77 );
   table()->entryIs( row );
   std::string const orphanText = "{\"hwKey\": \"" + orphan.stringValue() +
                                  ", vlan: 10\",\"eid0\": \"77\",\"aclId\": 3,},";
   EXPECT_EQ( show().output, "[" + orphanText + "]" );

   // A rule that got no TCAM room keeps a row without entries.
   table()->entryDelAll();
   Oro::NatHwKey const unplaced =
       natKey( Key::staticSrcNat, ipPort( "10.0.0.8" ), ipPort( "203.0.113.8" ) );
   rule( 8, unplaced );
   table()->entryIs( Corvane::EntryIdTableEntry( unplaced ) );
   EXPECT_EQ( show().output,
              "[{\"hwKey\": \"" + unplaced.stringValue() +
                  ", vlan: none\",\"aclId\": 0,\"filterAddr\": \"0.0.0.0/0\",\"uid\": 8,"
                  "\"dirty\": 0,\"nextHop\": 0,\"multicast\": 0,},]" );
}

TEST_F( NatShowCommand, ChipsWithSeveralPipesShowEachPipesId ) {
   chip.pipes = 3;
   start();
   rule( 1, natKey( Key::staticSrcNat, ipPort( "10.0.0.1" ), ipPort( "203.0.113.1" ) ) );
   EXPECT_THAT(
       show().output,
       HasSubstr( "\"eid0\": \"1 pipe0: 1 pipe1: 16777217 pipe2: 33554433\"," ) );
   // An entry id 0 has no places in the pipes.
   Corvane::EntryIdTableEntry row(
       natKey( Key::staticSrcNat, ipPort( "10.0.0.2" ), ipPort( "1.1.1.1" ) ) );
   row.defaultEntryIdIs( 0, 0 );
   table()->entryIs( row );
   EXPECT_THAT( show().output, HasSubstr( "\"eid0\": \"0\"," ) );
}

// --- Slices -----------------------------------------------------------------------

TEST_F( NatShowCommand, SlicesConcatenateToTheOutputOfASingleSlice ) {
   chip.tcamEntries = 4096;
   start();
   rules( 1, 300 );
   std::size_t const rows = table()->entrys();
   ASSERT_EQ( rows, 300u );

   // On the virtual clock the quantum never runs out: one slice.
   Run whole = show( showCommand, 1 << 20 );
   EXPECT_EQ( whole.request->slices(), 1u );
   std::map<std::string, int> const counts = hwKeyCounts( whole.output );
   std::size_t objectCount = 0;
   for ( auto const& c : counts ) {
      EXPECT_EQ( c.second, 1 ) << c.first;
      objectCount += std::size_t( c.second );
   }
   // 150 source rows, 100 destination rows on one VLAN, 50 on two.
   EXPECT_EQ( objectCount, 350u );

   {
      // A simulated chip yields after every row.
      ScopedEnv vmid( "SIMULATION_VMID", "1" );
      ScopedEnv bcmsim( "USE_BCMSIM", nullptr );
      Run sliced = show();
      EXPECT_EQ( sliced.request->slices(), rows + 1 );
      EXPECT_EQ( sliced.request->timeYieldCount(), rows );
      EXPECT_EQ( sliced.output, whole.output );
   }

   // A small buffer makes the slices yield when it fills.
   Run buffered = show( showCommand, 2000 );
   EXPECT_GT( buffered.request->slices(), 10u );
   EXPECT_GT( buffered.request->bufferYieldCount(), 0u );
   EXPECT_EQ( buffered.output, whole.output );
}

TEST_F( NatShowCommand, ABookmarkDeletedBetweenSlicesEndsTheOutput ) {
   start();
   rules( 1, 3 );
   HandDriven hand( worker() );
   std::string const first = hand.slice();
   ASSERT_EQ( first.compare( 0, 2, "[{" ), 0 ) << first;
   ASSERT_FALSE( hand.request->executionCompleted() );
   Oro::NatHwKey const bookmark = hand.request->entryBookmark();
   EXPECT_THAT( first,
                HasSubstr( "{\"hwKey\": \"" + bookmark.stringValue() + ", vlan: " ) );

   U32 uid = 0;
   for ( auto const& k : keys ) {
      if ( k.second == bookmark ) {
         uid = k.first;
      }
   }
   ASSERT_NE( uid, 0u );
   removeRule( uid, bookmark );
   ASSERT_FALSE( table()->entryHas( bookmark ) );

   EXPECT_EQ( hand.slice(), "]" );
   EXPECT_TRUE( hand.request->executionCompleted() );
   EXPECT_EQ( hand.socket.text(), first + "]" );
}

// Rows inserted and removed between slices, with rehashes in between: the output is
// the table's own order as it ends (removed rows gone, inserted ones last), each row
// once.
TEST_F( NatShowCommand, RowsComingAndGoingAcrossRehashesFollowTheTablesOwnOrder ) {
   chip.tcamEntries = 4096;
   start();
   rules( 1, 50 );

   HandDriven hand( worker(), 800 );  // slices of a few rows each
   std::string out;
   U32 nextUid = 1000;
   for ( int round = 0; round < 2; ++round ) {
      for ( int i = 0; i < 4; ++i ) {
         out += hand.slice();
      }
      ASSERT_FALSE( hand.request->executionCompleted() );
      // A row not yet written goes: the one after the bookmark's successor.
      Corvane::EntryIdTableEntry const* next =
          Corvane::EntryIdTable::next( *table()->row( hand.request->entryBookmark() ) );
      ASSERT_TRUE( next && Corvane::EntryIdTable::next( *next ) );
      Oro::NatHwKey const gone = Corvane::EntryIdTable::next( *next )->key();
      for ( auto const& k : keys ) {
         if ( k.second == gone ) {
            removeRule( k.first, gone );
            break;
         }
      }
      ASSERT_FALSE( table()->entryHas( gone ) );
      // Rows come until the table rehashes.
      std::size_t const buckets = table()->bucketCount();
      while ( table()->bucketCount() == buckets && nextUid < 1400 ) {
         rules( nextUid++, 1 );
      }
      ASSERT_NE( table()->bucketCount(), buckets );
   }
   out += hand.finish();

   std::vector<std::string> written;
   for ( std::size_t at = out.find( "{\"hwKey\": \"" ); at != std::string::npos;
         at = out.find( "{\"hwKey\": \"", at + 1 ) ) {
      std::size_t const begin = at + 11;
      std::string const key = out.substr( begin, out.find( ", vlan: ", begin ) - begin );
      if ( written.empty() || written.back() != key ) {
         written.push_back( key );
      }
   }
   std::vector<std::string> order;
   for ( auto row = table()->first(); row; row = Corvane::EntryIdTable::next( *row ) ) {
      order.push_back( row->key().stringValue() );
   }
   EXPECT_EQ( written, order );
}

// Every field at its longest: the row is written whole, nothing past its storage.
TEST_F( NatShowCommand, ARowWithEveryFieldAtItsLongest ) {
   chip.pipes = 3;
   start();
   Wirel::IpAndPort const longest( Wirel::IpAddr( 0xffffffffu ), 0xffff );
   Oro::NatHwKey const key( Key::NatKeyType( 0xffffffffu ), longest, longest, longest,
                            longest, true, 0xff, 0xffffffffu,
                            Oro::NatAclId( 0xffffffffu ) );
   Corvane::EntryIdTableEntry row( key );
   row.defaultEntryIdIs( 0xffff, 0xffffffffu );
   row.fragEntryIdIs( 0xffff, 0xfffffffeu );
   table()->entryIs( row );
   Oro::NatHwData data;
   data.filterAddrIs(
       Wirel::IpAddrWithFullMask( Wirel::IpAddr( 0xfffffeffu ), 0xfffffeffu ) );
   data.nextHopIdIs( ~U64( 0 ) );
   data.multicastIs( true );
   platform->agent()
       .sharedMem->getEntity<Oro::NatHwShadow>( "corvanenat/hwShadow" )
       ->entryIs( Oro::NatHwShadowEntry( key, data, CorvaneNat::Uid( 0xffffffffu ),
                                         Oro::NatHwShadowEntry::Dirty( 0x80000000u ) ) );

   auto places = [this]( U32 id ) {
      std::string text = std::to_string( id );
      for ( U32 pipe = 0; pipe < 3; ++pipe ) {
         text +=
             " pipe" + std::to_string( pipe ) + ": " +
             std::to_string( platform->tcamManager().getPipeEntryId( 1, id, pipe, 0 ) );
      }
      return text;
   };
   EXPECT_EQ( show().output,
              "[{\"hwKey\": \"" + key.stringValue() + ", vlan: 65535\",\"eid0\": \"" +
                  places( 0xffffffffu ) + "\",\"eid1\": \"" + places( 0xfffffffeu ) +
                  "\",\"aclId\": 4294967295,\"filterAddr\": "
                  "\"255.255.254.255/255.255.254.255\",\"uid\": 4294967295,\"dirty\": "
                  "-2147483648,\"nextHop\": 18446744073709551615,\"multicast\": 1,},]" );
}

// The command shows the table the worker had when it began, in that table's order,
// also when the worker starts a new table (filled in another order) between slices.
TEST_F( NatShowCommand, ATableRebuiltBetweenSlicesNeitherRepeatsNorLosesRows ) {
   start();
   std::vector<Corvane::EntryIdTableEntry> rows;
   for ( U32 i = 0; i < 200; ++i ) {
      Corvane::EntryIdTableEntry row( natKey(
          Key::staticSrcNat, Wirel::IpAndPort( Wirel::IpAddr( 0x0a000000 + i ), 0 ),
          ipPort( "1.1.1.1" ) ) );
      row.defaultEntryIdIs( 0, 1 + i );
      rows.push_back( row );
      table()->entryIs( row );
   }
   std::map<std::string, int> const before = hwKeyCounts( show().output );

   HandDriven hand( worker(), 800 );
   std::string out;
   for ( int i = 0; i < 3; ++i ) {
      out += hand.slice();
   }
   ASSERT_FALSE( hand.request->executionCompleted() );
   worker()->entryIdTableDel();
   Corvane::EntryIdTable::Ptr fresh = worker()->entryIdTableIs();
   for ( auto row = rows.rbegin(); row != rows.rend(); ++row ) {
      fresh->entryIs( *row );
   }
   out += hand.finish();

   std::map<std::string, int> const after = hwKeyCounts( out );
   EXPECT_EQ( after.size(), before.size() );
   expectEachOnceNoneLost( before, after );
}

// --- Creating the request -----------------------------------------------------------

TEST_F( NatShowCommand, TheQuantumIsZeroOnlyOnASimulatedChipWithoutTheChipSimulator ) {
   start();
   struct Case {
      char const* vmid;
      char const* bcmsim;
      Fwk::Seconds quantum;
   };
   for ( Case const c : { Case{ nullptr, nullptr, 0.05 }, Case{ "7", nullptr, 0.0 },
                          Case{ "", nullptr, 0.0 }, Case{ "7", "1", 0.05 },
                          Case{ nullptr, "1", 0.05 } } ) {
      ScopedEnv vmid( "SIMULATION_VMID", c.vmid );
      ScopedEnv bcmsim( "USE_BCMSIM", c.bcmsim );
      Agent::AgentCommandRequest request;
      request.command = showCommand;
      auto sm = callback->createAgentAsyncCommandRequestSm( request );
      ASSERT_TRUE( sm );
      EXPECT_EQ( sm->maxRunTime(), c.quantum )
          << "SIMULATION_VMID " << ( c.vmid ? c.vmid : "unset" ) << ", USE_BCMSIM "
          << ( c.bcmsim ? c.bcmsim : "unset" );
   }
}

TEST_F( NatShowCommand, OnlyTheCommandOfAPlugInWithARootGetsARequest ) {
   Agent::AgentCommandRequest request;
   request.command = showCommand;
   // No mounter at all.
   ASSERT_EQ( Corvane::NatMounter::natMounter(), nullptr );
   EXPECT_FALSE( callback->createAgentAsyncCommandRequestSm( request ) );
   // A chip without NAT: the mounter makes no root.
   chip.natSupported = false;
   start();
   EXPECT_FALSE( callback->createAgentAsyncCommandRequestSm( request ) );

   TearDown();
   chip.natSupported = true;
   start();
   rules( 1, 2 );
   Run run = show( "ShowCorvaneNat" );
   EXPECT_FALSE( run.request );
   EXPECT_EQ( run.output, "" );
   // The command only has to contain the name.
   EXPECT_EQ( objects( show( "agent ShowCorvaneNatSlice json" ).output ).size(), 2u );

   // The callback as the agent creates it, by its type name.
   auto created = Fwk::ptr_cast<Agent::AgentCommandCallback>(
       Agent::entityFromType( "Corvane::NatCliCallback", "natCli" ) );
   ASSERT_TRUE( created );
   EXPECT_EQ( created->name(), "natCli" );
   callback = Fwk::ptr_cast<Corvane::NatCliCallback>( created );
   ASSERT_TRUE( callback );
   EXPECT_EQ( objects( show().output ).size(), 2u );
}

TEST_F( NatShowCommand, MoreThanOneWorkerStopsTheProcess ) {
   chip.modules = { { 1, 1 }, { 2, 2 } };
   start();
   Agent::AgentCommandRequest request;
   request.command = showCommand;
   EXPECT_DEATH( callback->createAgentAsyncCommandRequestSm( request ),
                 "rootSm->natWorkerSms\\(\\) == 1" );
}

TEST( NatShowBoundedCopy, CopiesUpToItsBoundAndStopsBeyond ) {
   char out[8] = "xxxxxxx";
   EXPECT_EQ( Corvane::boundedCopy( out + 1, "abc", 3, 3 ), out + 4 );
   EXPECT_STREQ( out, "xabcxxx" );
   EXPECT_DEATH( Corvane::boundedCopy( out, "abcd", 4, 3 ),
                 "expected size <= 3, instead got 4\\. Buffer is at address: 0x[0-9a-f]+ "
                 "with contents: abcd" );
}

}  // namespace
