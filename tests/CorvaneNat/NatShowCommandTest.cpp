// The show command "ShowCorvaneNatSlice": the text it writes, how it slices and resumes
// (also when rows come and go between slices and the table rehashes), the time quantum,
// and the commands and states it refuses.

#include <gmock/gmock.h>
#include <unistd.h>

#include <utility>

#include <cstdio>
#include <map>

#include "CorvaneNat/NatShowCommand.h"
#include "NatTestFixture.h"
#include "platform/agent/PluginLoader.h"

namespace {

using namespace NatTest;
using ::testing::AnyOf;
using ::testing::Eq;
using ::testing::HasSubstr;

char const showCommand[] = "ShowCorvaneNatSlice";

// A file standing in for the requester's socket; news() is what was written since the
// last call.
struct TempSocket {
   std::FILE* file = std::tmpfile();
   std::size_t seen = 0;
   ~TempSocket() { std::fclose( file ); }
   int fd() const { return fileno( file ); }
   std::string text() const {
      std::string out( std::size_t( ::lseek( fd(), 0, SEEK_END ) ), '\0' );
      EXPECT_EQ( ::pread( fd(), &out[0], out.size(), 0 ), ssize_t( out.size() ) );
      return out;
   }
   std::string news() {
      std::string const all = text();
      return all.substr( std::exchange( seen, all.size() ) );
   }
};

// Sets (or, with null, unsets) an environment variable until the end of the scope, when
// it is unset (the tests run without either variable).
struct ScopedEnv {
   char const* name;
   ScopedEnv( char const* n, char const* value ) : name( n ) {
      value ? ::setenv( name, value, 1 ) : ::unsetenv( name );
   }
   ~ScopedEnv() { ::unsetenv( name ); }
};

// The key texts of the objects of an output, in order, each with its VLAN.
Lines hwKeys( std::string const& output ) {
   Lines out;
   std::string const open = "{\"hwKey\": \"";
   for ( std::size_t at = output.find( open ); at != std::string::npos;
         at = output.find( open, at + 1 ) ) {
      std::size_t const begin = at + open.size();
      out.push_back( output.substr( begin, output.find( "\",", begin ) - begin ) );
   }
   return out;
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

   // A request driven slice by slice by the test: each slice writes rows until its
   // buffer holds `bytesPerSlice`, and is then written out.
   struct HandDriven {
      HandDriven( Corvane::NatWorkerSm* worker, std::size_t bytesPerSlice ) {
         Agent::AgentCommandRequest r;
         r.command = showCommand;
         r.socket = socket.fd();
         request = Corvane::NatSliceCommandRequestSmIs(
             "show", r, 1.0, Fwk::activityManager().clockPtr(), worker );
         request->maxBufferSizeIs( bytesPerSlice );
         request->hasNotificationActiveIs( false );  // the test runs the slices
      }
      std::string slice() {
         request->runCommand();
         return socket.news();
      }
      TempSocket socket;
      Corvane::NatSliceCommandRequestSm::Ptr request;
   };

   // `count` rules from `firstUid`: source rules (one entry, VLAN "*") and destination
   // rules on one or two VLANs, with ports on some.
   void rules( U32 firstUid, U32 count ) {
      for ( U32 uid = firstUid; uid < firstUid + count; ++uid ) {
         Wirel::IpAndPort const old( Wirel::IpAddr( 0x0a000000 + uid ),
                                     uid % 4 ? 0 : 80 );
         Oro::NatHwKey const key =
             uid % 2 ? natKey( Key::staticSrcNat, old, at( "1.1.1.1" ) )
                     : natKey( Key::staticDstNat, {}, {}, old, at( "10.1.1.1", 8080 ) );
         uids[key.stringValue()] = uid;
         rule( uid, key, uid % 3 ? Data().vlans( { 10 } ) : Data().vlans( { 20, 30 } ) );
      }
   }
   void removeKey( Oro::NatHwKey const& key ) {
      removeRule( uids[key.stringValue()], key );
   }

   Corvane::EntryIdTable* table() { return worker()->entryIdTable(); }
   Corvane::NatCliCallback::Ptr callback = new Corvane::NatCliCallback( "natCli" );
   std::map<std::string, U32> uids;
};

TEST_F( NatShowCommand, ExactOutputWithItsTrailingCommas ) {
   nat.fragmentEnabled = true;
   start();
   Oro::NatHwKey const snat =
       natKey( Key::staticSrcNat, at( "10.0.0.1" ), at( "203.0.113.1" ) );
   Run empty = show();
   EXPECT_EQ( empty.output, "[]" );
   EXPECT_EQ( empty.request->slices(), 1u );
   rule( 1, snat );
   std::string const rowOf1 =
       "{\"hwKey\": \"type: staticSrcNat, old sip: 10.0.0.1:0, new sip: "
       "203.0.113.1:0, proto: 0, faId: 0, aclId: 0, reverse: false, vlan: *\","
       "\"eid0\": \"1\",\"aclId\": 0,\"filterAddr\": \"0.0.0.0/0\",\"uid\": 1,"
       "\"dirty\": 0,\"nextHop\": 0,\"multicast\": 0,},";
   EXPECT_EQ( show().output, "[" + rowOf1 + "]" );

   // A destination NAPT rule on two VLANs: an object per VLAN, each with its default
   // and fragment entry and the shared fields of the key and its shadow data.
   Oro::NatHwKey const napt = natKey( Key::staticDstNat, {}, {}, at( "203.0.113.80", 80 ),
                                      at( "10.0.0.80", 8080 ), 0, 7 );
   rule( 2, napt,
         Data().vlans( { 20, 10 } ).nextHop( 0x8000002 ).filter( "192.0.2.0", 24 ) );
   std::string const common =
       "\"aclId\": 7,\"filterAddr\": \"192.0.2.0/24\",\"uid\": 2,\"dirty\": 0,"
       "\"nextHop\": 134217730,\"multicast\": 0,},";
   std::string const key =
       "{\"hwKey\": \"type: staticDstNat, old dip: 203.0.113.80:80, new dip: "
       "10.0.0.80:8080, proto: 0, faId: 0, aclId: 7, reverse: false, vlan: ";
   std::string const rowOf2 = key + "10\",\"eid0\": \"4\",\"eid1\": \"5\"," + common +
                              key + "20\",\"eid0\": \"2\",\"eid1\": \"3\"," + common;
   EXPECT_THAT( show().output, AnyOf( Eq( "[" + rowOf1 + rowOf2 + "]" ),
                                      Eq( "[" + rowOf2 + rowOf1 + "]" ) ) );

   // A row whose key upstream no longer publishes shows the key's fields only, a VLAN
   // with a fragment entry alone shows that one; a row without entries shows VLAN
   // "none".
   table()->entryDelAll();
   Oro::NatHwKey const orphan =
       natKey( Key::staticDstNat, {}, {}, at( "203.0.113.7" ), at( "10.0.0.7" ), 0, 3 );
   Corvane::EntryIdTableEntry row( orphan );
   row.defaultEntryIdIs( 10, 77 );
   row.fragEntryIdIs( 5, 78 );
   table()->entryIs( row );
   std::string const orphanKey = "{\"hwKey\": \"" + orphan.stringValue() + ", vlan: ";
   EXPECT_EQ( show().output, "[" + orphanKey + "5\",\"eid1\": \"78\",\"aclId\": 3,}," +
                                 orphanKey + "10\",\"eid0\": \"77\",\"aclId\": 3,},]" );
   table()->entryDelAll();
   table()->entryIs( Corvane::EntryIdTableEntry( snat ) );
   EXPECT_EQ( show().output,
              "[{\"hwKey\": \"" + snat.stringValue() +
                  ", vlan: none\",\"aclId\": 0,\"filterAddr\": \"0.0.0.0/0\",\"uid\": 1,"
                  "\"dirty\": 0,\"nextHop\": 0,\"multicast\": 0,},]" );
}

// Every field at its longest, on a chip of three pipes: the row is written whole.
TEST_F( NatShowCommand, ARowWithEveryFieldAtItsLongestAndThePipes ) {
   chip.pipes = 3;
   start();
   rule( 1, natKey( Key::staticSrcNat, at( "10.0.0.1" ), at( "203.0.113.1" ) ) );
   EXPECT_THAT(
       show().output,
       HasSubstr( "\"eid0\": \"1 pipe0: 1 pipe1: 16777217 pipe2: 33554433\"," ) );
   table()->entryDelAll();
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
   // An entry id 0 has no places in the pipes.
   row.defaultEntryIdIs( 0xffff, 0 );
   table()->entryIs( row );
   EXPECT_THAT( show().output, HasSubstr( "\"eid0\": \"0\"," ) );
}

TEST_F( NatShowCommand, SlicesConcatenateToTheOutputOfASingleSlice ) {
   chip.tcamEntries = 4096;
   start();
   rules( 1, 300 );
   ASSERT_EQ( table()->entrys(), 300u );
   // On the virtual clock the quantum never runs out: one slice.
   Run whole = show( showCommand, 1 << 20 );
   EXPECT_EQ( whole.request->slices(), 1u );
   Lines const written = hwKeys( whole.output );
   // 150 source rows, 100 destination rows on one VLAN, 50 on two, each once.
   EXPECT_EQ( written.size(), 350u );
   EXPECT_EQ( std::set<std::string>( written.begin(), written.end() ).size(), 350u );
   {
      // A simulated chip yields after every row.
      ScopedEnv vmid( "SIMULATION_VMID", "1" );
      ScopedEnv bcmsim( "USE_BCMSIM", nullptr );
      Run sliced = show();
      EXPECT_EQ( sliced.request->slices(), 301u );
      EXPECT_EQ( sliced.request->timeYieldCount(), 300u );
      EXPECT_EQ( sliced.output, whole.output );
   }
   // A small buffer makes the slices yield when it fills.
   Run buffered = show( showCommand, 2000 );
   EXPECT_GT( buffered.request->slices(), 10u );
   EXPECT_GT( buffered.request->bufferYieldCount(), 0u );
   EXPECT_EQ( buffered.output, whole.output );
}

// Rows inserted and removed between slices, with rehashes in between: the output is
// the table's own order as it ends, each row once; a removed bookmark ends the output.
TEST_F( NatShowCommand, RowsComingAndGoingBetweenSlices ) {
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
      auto const* next =
          Corvane::EntryIdTable::next( *table()->row( hand.request->entryBookmark() ) );
      ASSERT_TRUE( next && Corvane::EntryIdTable::next( *next ) );
      removeKey( Corvane::EntryIdTable::next( *next )->key() );
      std::size_t const buckets = table()->bucketCount();
      while ( table()->bucketCount() == buckets && nextUid < 1400 ) {
         rules( nextUid++, 1 );
      }
      ASSERT_NE( table()->bucketCount(), buckets );
   }
   for ( int i = 0; i < 100000 && !hand.request->executionCompleted(); ++i ) {
      out += hand.slice();
   }
   Lines written;
   for ( std::string const& k : hwKeys( out ) ) {
      std::string const key = k.substr( 0, k.find( ", vlan: " ) );
      if ( written.empty() || written.back() != key ) {
         written.push_back( key );
      }
   }
   Lines order;
   for ( auto row = table()->first(); row; row = Corvane::EntryIdTable::next( *row ) ) {
      order.push_back( row->key().stringValue() );
   }
   EXPECT_EQ( written, order );

   HandDriven again( worker(), 800 );
   std::string const first = again.slice();
   EXPECT_NE( first.find( again.request->entryBookmark().stringValue() ),
              std::string::npos );
   removeKey( again.request->entryBookmark() );
   EXPECT_EQ( again.slice(), "]" );
   EXPECT_TRUE( again.request->executionCompleted() );
}

TEST_F( NatShowCommand, TheQuantumIsZeroOnlyOnASimulatedChipWithoutTheChipSimulator ) {
   start();
   struct Case {
      char const* vmid;
      char const* bcmsim;
      Fwk::Seconds quantum;
   };
   for ( Case const c : { Case{ nullptr, nullptr, 0.05 }, Case{ "", nullptr, 0.0 },
                          Case{ "7", "1", 0.05 } } ) {
      ScopedEnv vmid( "SIMULATION_VMID", c.vmid );
      ScopedEnv bcmsim( "USE_BCMSIM", c.bcmsim );
      Agent::AgentCommandRequest request;
      request.command = showCommand;
      auto sm = callback->createAgentAsyncCommandRequestSm( request );
      ASSERT_TRUE( sm );
      EXPECT_EQ( sm->maxRunTime(), c.quantum )
          << ( c.vmid ? c.vmid : "unset" ) << " " << ( c.bcmsim ? c.bcmsim : "unset" );
   }
}

TEST_F( NatShowCommand, OnlyTheCommandOfAPlugInWithOneWorkerGetsARequest ) {
   Agent::AgentCommandRequest request;
   request.command = showCommand;
   EXPECT_FALSE( callback->createAgentAsyncCommandRequestSm( request ) ) << "no mounter";
   chip.natSupported = false;
   start();
   EXPECT_FALSE( callback->createAgentAsyncCommandRequestSm( request ) ) << "no root";
   TearDown();
   chip.natSupported = true;
   start();
   rules( 1, 2 );
   Run run = show( "ShowCorvaneNat" );
   EXPECT_FALSE( run.request );
   EXPECT_EQ( run.output, "" );
   // The command only has to contain the name.
   EXPECT_EQ( hwKeys( show( "agent ShowCorvaneNatSlice json" ).output ).size(), 2u );
   // The callback as the agent creates it, by its type name.
   callback = Fwk::ptr_cast<Corvane::NatCliCallback>(
       Agent::entityFromType( "Corvane::NatCliCallback", "natCli" ) );
   ASSERT_TRUE( callback );
   EXPECT_EQ( hwKeys( show().output ).size(), 2u );

   TearDown();
   chip.modules = { { 1, 1 }, { 2, 2 } };
   start();
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
