// The NAT trap filters on the simulated platform: which entries an ACL gets and in which
// order, what each holds, how entries are given back, running out of TCAM room, and what
// packets meet in the chip.

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "CorvaneNat/CorvaneNatTrapSm.h"
#include "platform/chip/Journal.h"
#include "platform/fwk/LogEvent.h"
#include "platform/fwk/Trace.h"
#include "tools/natsim/SimPlatform.h"

namespace {

using CorvaneNat::TcpControl;
using CorvaneNat::TrapSm;

Wirel::IpAddr ip( char const* text ) {
   Wirel::IpAddr out;
   EXPECT_TRUE( Wirel::IpAddr::fromString( text, out ) ) << text;
   return out;
}

Wirel::IpAddrWithFullMask net( char const* text, unsigned length ) {
   return Wirel::IpAddrWithFullMask( ip( text ), Wirel::prefixMask( length ) );
}

Oro::NatTrapRule permit( Wirel::IpAddrWithFullMask src, Wirel::IpAddrWithFullMask dst ) {
   return Oro::NatTrapRule( true, src, dst );
}

Oro::NatTrapRule deny( Wirel::IpAddrWithFullMask src, Wirel::IpAddrWithFullMask dst ) {
   return Oro::NatTrapRule( false, src, dst );
}

Oro::NatTrapRule pool( Wirel::IpAddrWithFullMask dst ) {
   return Oro::NatTrapRule( true, {}, dst, true );
}

Oro::NatTrapAcl acl( Oro::NatTrapKey const& key, std::vector<Oro::NatTrapRule> rules,
                     bool implicitDeny = false ) {
   Oro::NatTrapAcl out( key );
   U32 seq = 10;
   for ( auto const& rule : rules ) {
      out.ruleBySequenceIs( seq, rule );
      seq += 10;
   }
   out.implicitDenyIs( implicitDeny );
   return out;
}

// A chip entry as one line: qualifiers in the chip's order (addresses dotted), actions
// in the order added, then the priority.
std::string recipe( Chip::FpEntry const& entry ) {
   std::ostringstream os;
   for ( Chip::Qualifier q : entry.qualifiers() ) {
      os << Chip::qualifierName( q );
      if ( q == Chip::Qualifier::SrcIp || q == Chip::Qualifier::DstIp ) {
         os << "=" << Wirel::IpAddr( entry.qualifier( q ).data ).stringValue() << "&"
            << Wirel::IpAddr( entry.qualifier( q ).mask ).stringValue() << " ";
      } else {
         os << Chip::json( entry.qualifierArgs( q ) ) << " ";
      }
   }
   os << "=>";
   for ( auto const& a : entry.actions() ) {
      os << " " << Chip::actionName( a.action ) << "(" << a.param0 << "," << a.param1
         << ")";
   }
   os << " @" << entry.priority();
   return os.str();
}

class TrapSmTest : public ::testing::Test {
protected:
   void start() {
      platform =
          std::make_unique<natsim::SimPlatform>( "Corvane", chip, natsim::NatConfig() );
      previousLogSink = Fwk::logSinkIs(
          [this]( Fwk::LogRecord const& record ) { logs.push_back( record ); } );
   }
   void TearDown() override {
      trapSm = nullptr;
      platform.reset();
      Fwk::logSinkIs( previousLogSink );
   }

   void make() {
      trapSm = CorvaneNat::TrapSmIs(
          1, Oro::NatTrapConfig::PtrConst( &platform->trapConfig() ),
          Corvane::CorvaneTcamGroupManager::Ptr( &platform->tcamManager() ) );
   }
   void publish( Oro::NatTrapAcl const& trapAcl ) {
      platform->trapConfig().trapAclIs( trapAcl );
      platform->loop().runUntilIdle();
   }
   void remove( Oro::NatTrapKey const& key ) {
      platform->trapConfig().trapAclDel( key );
      platform->loop().runUntilIdle();
   }

   std::size_t mark() const { return Chip::journal().size(); }
   // Ids of a manager call from `from` on, in call order.
   std::vector<U32> ids( char const* call, std::size_t from = 0 ) const {
      std::vector<U32> out;
      for ( auto const& r : Chip::journal().recordsFrom( from ) ) {
         if ( r.call == call ) {
            out.push_back( r.entry );
         }
      }
      return out;
   }
   std::vector<std::string> allocated( std::size_t from = 0 ) const {
      std::vector<std::string> out;
      for ( auto const& r : Chip::journal().recordsFrom( from ) ) {
         if ( r.call == "getEntry" && r.entry != 0 ) {
            out.push_back( r.args.at( 0 ).name );
         }
      }
      return out;
   }
   // "<call> <args>" of the calls on one entry, from `from` on.
   std::vector<std::string> callsOn( U32 entryId, std::size_t from = 0 ) const {
      std::vector<std::string> out;
      for ( auto const& r : Chip::journal().recordsFrom( from ) ) {
         if ( r.hasEntry && r.entry == entryId ) {
            out.push_back( r.call + " " + Chip::json( r.args ) );
         }
      }
      return out;
   }
   Chip::FieldProcessor& fp() { return platform->chip().unit( 1 )->fieldProcessor(); }
   std::string recipeOf( U32 entryId ) {
      Chip::FpEntry const* entry = fp().entry( entryId );
      return entry ? recipe( *entry ) : "no entry";
   }
   // The description of the entry a packet meets first, or "none".
   std::string hit( Chip::Packet packet ) {
      packet.myStationHit = true;
      U32 const id = platform->chip().lookup( 1, natsim::natGroup, packet, 1 );
      return id ? fp().entry( id )->description() : "none";
   }

   natsim::ChipConfig chip;
   std::unique_ptr<natsim::SimPlatform> platform;
   TrapSm::Ptr trapSm;
   std::vector<Fwk::LogRecord> logs;
   Fwk::LogSink previousLogSink;
   Oro::NatTrapKey const keyA{ "aclA", 10 };
   Oro::NatTrapKey const keyB{ "aclB", 20 };
};

std::string const exactMatch = "ExactMatch[0, \"bcmFieldQualifyExactMatchHitStatus\", ";
std::string const station = "MyStationHit[1, 1] SrcClassField[0, 8] ";
std::string const toCpu =
    " bcmFieldActionCopyToCpu(0,0) bcmFieldActionDrop(0,0) bcmFieldActionCosQCpuNew(6,0)";
std::string const skipCpu =
    " bcmFieldActionCopyToCpuCancel(0,0) bcmFieldActionDropCancel(0,0)";
std::string const skipEvxlt = " bcmFieldActionAssignExtractionCtrlId(0,31)";

TEST_F( TrapSmTest, OneAclIsProgrammedInPassOrderWithItsEntriesExactly ) {
   start();
   platform->trapConfig().trapAclIs(
       acl( keyA,
            { permit( net( "10.0.0.0", 8 ), {} ), pool( net( "1.1.1.0", 24 ) ),
              deny( net( "10.1.0.0", 16 ), net( "2.2.2.2", 32 ) ) },
            true ) );
   make();
   EXPECT_TRUE( trapSm->initialized() );
   EXPECT_EQ( allocated(),
              ( std::vector<std::string>{
                  "NAT acl:  !EM_HIT src=10.0.0.0/8 IP => CPU",
                  "NAT acl:  !EM_HIT src=10.1.0.0/16 dst=2.2.2.2/32 deny => SkipNat",
                  "NAT pool: !EM_HIT dst=1.1.1.0/24 IP => CPU",
                  "NAT acl:   EM_HIT src=10.0.0.0/8 SYN => CPU",
                  "NAT acl:   EM_HIT src=10.0.0.0/8 FIN => CPU",
                  "NAT acl:   EM_HIT src=10.0.0.0/8 RST => CPU",
                  "NAT acl:   EM_HIT src=10.0.0.0/8 IP => Nat",
                  "NAT acl:   EM_HIT src=10.1.0.0/16 dst=2.2.2.2/32 deny => SkipNat",
                  "NAT pool:  EM_HIT dst=1.1.1.0/24 TCP_DATA => Skip CPU",
                  "NAT pool:  EM_HIT dst=1.1.1.0/24 TCP_CTRL => CPU",
                  "NAT pool:  EM_HIT dst=1.1.1.0/24 IP => Skip CPU",
                  "NAT acl:   EM_HIT Implicit deny =>" } ) );
   std::vector<U32> const id = ids( "getEntry" );
   ASSERT_EQ( id.size(), 12u );
   std::string const src = "SrcIp=10.0.0.0&255.0.0.0 DstIp=0.0.0.0&0.0.0.0 ";
   std::string const denySrcDst =
       "SrcIp=10.1.0.0&255.255.0.0 DstIp=2.2.2.2&255.255.255.255 ";
   std::string const poolDst = station + "DstIp=1.1.1.0&255.255.255.0 ";
   std::vector<std::string> const expected = {
       station + src + exactMatch + "0, 1] =>" + toCpu + " @1",
       station + denySrcDst + exactMatch + "0, 1] => @1",
       poolDst + exactMatch + "0, 1] =>" + toCpu + " @1",
       station + src + "IpProtocol[6, 255] TcpControl[2, 7] " + exactMatch + "1, 1] =>" +
           toCpu + " @1",
       station + src + "IpProtocol[6, 255] TcpControl[1, 7] " + exactMatch + "1, 1] =>" +
           toCpu + " @1",
       station + src + "IpProtocol[6, 255] TcpControl[4, 7] " + exactMatch + "1, 1] =>" +
           toCpu + " @1",
       station + src + exactMatch + "1, 1] => @1",
       station + denySrcDst + exactMatch + "1, 1] =>" + skipEvxlt + " @1",
       poolDst + "IpProtocol[6, 255] TcpControl[0, 7] " + exactMatch + "1, 1] =>" +
           skipCpu + " @1",
       poolDst + "IpProtocol[6, 255] " + exactMatch + "1, 1] =>" + toCpu + " @1",
       poolDst + exactMatch + "1, 1] =>" + skipCpu + " @1",
       station + exactMatch + "1, 1] =>" + skipEvxlt + " @0" };
   for ( std::size_t i = 0; i < id.size(); ++i ) {
      EXPECT_EQ( recipeOf( id[i] ), expected[i] ) << i;
      EXPECT_TRUE( fp().entry( id[i] )->installed() ) << i;
   }
   // Every entry but the shared implicit deny belongs to the ACL's row.
   EXPECT_EQ( trapSm->implicitDenyEntryId(), id.back() );
   TrapSm::TcamEntry const row = trapSm->tcamEntry( keyA );
   EXPECT_EQ( row.entryId().size(), 11u );
   EXPECT_FALSE( row.entryIdHas( id.back() ) );
}

TEST_F( TrapSmTest, CallsOfEachEntryComeInTheirOrder ) {
   start();
   make();
   publish( acl( keyA, { permit( {}, net( "2.2.2.0", 24 ) ) } ) );
   std::vector<U32> const id = ids( "getEntry" );
   ASSERT_EQ( id.size(), 5u );
   std::string const hitStatus =
       "bcm_field_qualify_ExactMatch [0, \"bcmFieldQualifyExactMatchHitStatus\", ";
   std::vector<std::string> const actionsToCpu = {
       "bcm_field_action_add [\"bcmFieldActionCopyToCpu\", 0, 0]",
       "bcm_field_action_add [\"bcmFieldActionDrop\", 0, 0]",
       "bcm_field_action_add [\"bcmFieldActionCosQCpuNew\", 6, 0]" };
   // The trap entry takes its action before any qualifier.
   std::vector<std::string> trap = {
       "getEntry [\"NAT acl:  !EM_HIT dst=2.2.2.0/24 IP => CPU\"]" };
   trap.insert( trap.end(), actionsToCpu.begin(), actionsToCpu.end() );
   trap.insert(
       trap.end(),
       { "bcm_field_qualify_MyStationHit [1, 1]",
         "bcm_field_qualify_SrcClassField [0, 8]", "bcm_field_qualify_SrcIp [0, 0]",
         "bcm_field_qualify_DstIp [33686016, 4294967040]", hitStatus + "0, 1]",
         "setPriorityForEntry [1]", "installEntry []" } );
   EXPECT_EQ( callsOn( id[0] ), trap );
   // A TCP control entry takes its action after the qualifiers.
   std::vector<std::string> syn = {
       "getEntry [\"NAT acl:   EM_HIT dst=2.2.2.0/24 SYN => CPU\"]",
       hitStatus + "1, 1]",
       "bcm_field_qualify_MyStationHit [1, 1]",
       "bcm_field_qualify_SrcClassField [0, 8]",
       "bcm_field_qualify_IpProtocol [6, 255]",
       "bcm_field_qualify_TcpControl [2, 7]",
       "bcm_field_qualify_SrcIp [0, 0]",
       "bcm_field_qualify_DstIp [33686016, 4294967040]" };
   syn.insert( syn.end(), actionsToCpu.begin(), actionsToCpu.end() );
   syn.insert( syn.end(), { "setPriorityForEntry [1]", "installEntry []" } );
   EXPECT_EQ( callsOn( id[1] ), syn );
}

TEST_F( TrapSmTest, ActionRecipesAddTheirActionsInOrderAndInstallNothing ) {
   start();
   auto manager = platform->tcamManager().unboundedEntryManager( natsim::natGroup );
   U32 const id = manager->getEntry( 1, "probe", CorvaneTcam::RequestKey() );
   std::size_t const from = mark();
   TrapSm::setTrapToCpuAction( 1, id );
   TrapSm::setSkipCpuAction( 1, id );
   TrapSm::setSkipEvxltAction( 1, id );
   EXPECT_EQ(
       callsOn( id, from ),
       ( std::vector<std::string>{
           "bcm_field_action_add [\"bcmFieldActionCopyToCpu\", 0, 0]",
           "bcm_field_action_add [\"bcmFieldActionDrop\", 0, 0]",
           "bcm_field_action_add [\"bcmFieldActionCosQCpuNew\", 6, 0]",
           "bcm_field_action_add [\"bcmFieldActionCopyToCpuCancel\", 0, 0]",
           "bcm_field_action_add [\"bcmFieldActionDropCancel\", 0, 0]",
           "bcm_field_action_add [\"bcmFieldActionAssignExtractionCtrlId\", 0, 31]" } ) );
   EXPECT_FALSE( fp().entry( id )->installed() );
}

TEST_F( TrapSmTest, DescriptionsOfAddressesAndDenyingRules ) {
   start();
   make();
   publish(
       acl( keyA, { permit( {}, {} ),
                    deny( Wirel::IpAddrWithFullMask( ip( "10.0.0.0" ), 0xff00ff00 ), {} ),
                    pool( {} ) } ) );
   std::vector<std::string> const descriptions = allocated();
   ASSERT_EQ( descriptions.size(), 11u );
   EXPECT_EQ( descriptions[0], "NAT acl:  !EM_HIT any IP => CPU" );
   // A mask that is not a prefix prints its leading ones.
   EXPECT_EQ( descriptions[1], "NAT acl:  !EM_HIT src=10.0.0.0/8 deny => SkipNat" );
   EXPECT_EQ( descriptions[2], "NAT pool: !EM_HIT dst=0.0.0.0/0 IP => CPU" );
   EXPECT_EQ( descriptions[3], "NAT acl:   EM_HIT any SYN => CPU" );
   EXPECT_EQ( descriptions[6], "NAT acl:   EM_HIT any IP => Nat" );
   // "any" is still qualified on both addresses, with value and mask 0.
   Chip::FpEntry const* any = fp().entry( ids( "getEntry" )[0] );
   EXPECT_TRUE( any->qualifierHas( Chip::Qualifier::SrcIp ) );
   EXPECT_TRUE( any->qualifierHas( Chip::Qualifier::DstIp ) );
   EXPECT_NE( recipeOf( ids( "getEntry" )[1] ).find( "SrcIp=10.0.0.0&255.0.255.0" ),
              std::string::npos );
}

TEST_F( TrapSmTest, ImplicitDenyAloneIsOneEntryOutsideTheRows ) {
   start();
   make();
   publish( acl( keyA, {}, true ) );
   EXPECT_EQ( fp().entryIds(), std::vector<U32>{ trapSm->implicitDenyEntryId() } );
   EXPECT_EQ( recipeOf( trapSm->implicitDenyEntryId() ),
              station + exactMatch + "1, 1] =>" + skipEvxlt + " @0" );
   EXPECT_TRUE( trapSm->tcamEntryHas( keyA ) );
   EXPECT_TRUE( trapSm->tcamEntry( keyA ).entryId().empty() );
}

TEST_F( TrapSmTest, ImplicitDenyIsKeptWhileAnAclAsksAndReleasedWithTheLast ) {
   start();
   make();
   publish( acl( keyA, { permit( {}, {} ) }, true ) );
   publish( acl( keyB, { permit( {}, {} ) }, true ) );
   U32 const implicitDeny = trapSm->implicitDenyEntryId();
   ASSERT_NE( implicitDeny, 0u );
   remove( keyA );
   EXPECT_EQ( trapSm->implicitDenyEntryId(), implicitDeny );
   EXPECT_TRUE( fp().entry( implicitDeny ) );
   EXPECT_FALSE( trapSm->tcamEntryHas( keyA ) );

   // An ACL that does not ask for it does not keep it either.
   publish( acl( keyA, { permit( {}, {} ) } ) );
   std::size_t const from = mark();
   remove( keyB );
   EXPECT_EQ( ids( "releaseEntry", from ).back(), implicitDeny );
   EXPECT_EQ( trapSm->implicitDenyEntryId(), 0u );
   EXPECT_FALSE( fp().entry( implicitDeny ) );
   EXPECT_EQ( trapSm->tcamEntry( keyA ).entryId().size(), 5u );
}

TEST_F( TrapSmTest, EveryAclGoneAtOnceReleasesImplicitDenyFirst ) {
   start();
   make();
   publish( acl( keyA, { deny( {}, {} ) }, true ) );
   publish( acl( keyB, { deny( {}, {} ) } ) );
   U32 const implicitDeny = trapSm->implicitDenyEntryId();
   std::size_t const from = mark();
   platform->trapConfig().trapAclDel( keyA );
   remove( keyB );
   std::vector<U32> const released = ids( "releaseEntry", from );
   ASSERT_EQ( released.size(), 5u );
   EXPECT_EQ( released[0], implicitDeny ) << "before the ACL's own entries";
   EXPECT_EQ( trapSm->implicitDenyEntryId(), 0u );
   EXPECT_EQ( trapSm->tcamEntrys(), 0u );
   EXPECT_TRUE( fp().entryIds().empty() );
}

TEST_F( TrapSmTest, RepublishingAnUnchangedAclReleasesAndReallocatesItsEntries ) {
   start();
   make();
   Oro::NatTrapAcl const trapAcl = acl( keyA, { permit( net( "10.0.0.0", 8 ), {} ) } );
   publish( trapAcl );
   std::vector<U32> before = ids( "getEntry" );
   std::size_t const from = mark();
   publish( trapAcl );
   std::vector<U32> released = ids( "releaseEntry", from );
   std::sort( before.begin(), before.end() );
   std::sort( released.begin(), released.end() );
   EXPECT_EQ( released, before );
   EXPECT_EQ( allocated( from ).size(), 5u );
   EXPECT_EQ( fp().entries(), 5u );
   EXPECT_EQ( trapSm->tcamEntry( keyA ).entryId().size(), 5u );
}

TEST_F( TrapSmTest, RunningOutMidAclLeavesNothingOfItAndNamesIt ) {
   chip.tcamEntries = 8;
   start();
   make();
   publish( acl( keyA, { permit( {}, {} ) } ) );  // five entries
   std::size_t const from = mark();
   publish( acl( keyB, { permit( net( "10.0.0.0", 8 ), {} ), deny( {}, {} ) }, true ) );
   // Both entries without hit and the first SYN entry; the FIN entry finds no room.
   EXPECT_EQ( allocated( from ).size(), 3u );
   EXPECT_EQ( ids( "releaseEntry", from ).size(), 3u );
   EXPECT_FALSE( trapSm->tcamEntryHas( keyB ) );
   EXPECT_EQ( trapSm->implicitDenyEntryId(), 0u ) << "not attempted";
   EXPECT_EQ( fp().entries(), 5u ) << "the other ACL keeps its entries";
   ASSERT_EQ( logs.size(), 1u );
   EXPECT_EQ( logs[0].name, "CORVANENAT_TRAP_TCAM_RESOURCE_FULL" );
   EXPECT_EQ( logs[0].message,
              "Hardware resources are insufficient to add NAT trap filter aclName: aclB, "
              "vlanId: 20" );

   // Tried again when the ACL changes; a pool entry that finds no room is named too.
   logs.clear();
   publish( acl( keyB, { pool( net( "1.1.1.0", 24 ) ) } ) );
   ASSERT_EQ( logs.size(), 2u );
   EXPECT_EQ( logs[0].message,
              "Hardware resources are insufficient to add NAT trap filter NAT pool:  "
              "EM_HIT dst=1.1.1.0/24 IP => Skip CPU" );
   EXPECT_EQ( logs[1].message,
              "Hardware resources are insufficient to add NAT trap filter aclName: aclB, "
              "vlanId: 20" );
   EXPECT_EQ( fp().entries(), 5u );
}

TEST_F( TrapSmTest, ImplicitDenyWithoutRoomIsTracedAndKeepsTheAcl ) {
   chip.tcamEntries = 5;
   start();
   make();
   std::string const setting = Fwk::traceSetting();
   std::vector<Fwk::TraceRecord> traces;
   Fwk::TraceSink const previous = Fwk::traceSinkIs(
       [&traces]( Fwk::TraceRecord const& r ) { traces.push_back( r ); } );
   Fwk::traceSettingIs( "ApiCorvane/0" );
   publish( acl( keyA, { permit( {}, {} ) }, true ) );
   Fwk::traceSinkIs( previous );
   Fwk::traceSettingIs( setting );
   EXPECT_EQ( trapSm->tcamEntry( keyA ).entryId().size(), 5u );
   EXPECT_EQ( trapSm->implicitDenyEntryId(), 0u );
   EXPECT_TRUE( logs.empty() );
   ASSERT_EQ( traces.size(), 1u );
   EXPECT_EQ( traces[0].message, "Implicit deny acl rule could not be programmed." );
}

TEST_F( TrapSmTest, ReactsOnlyWhileActiveAndLeavesHardwareWhenDestroyed ) {
   start();
   make();
   trapSm->hasNotificationActiveIs( false );
   publish( acl( keyA, { permit( {}, {} ) } ) );
   EXPECT_TRUE( allocated().empty() );
   trapSm->hasNotificationActiveIs( true );
   publish( acl( keyA, { permit( {}, {} ) } ) );
   EXPECT_EQ( allocated().size(), 5u );

   std::size_t const from = mark();
   trapSm = nullptr;
   EXPECT_EQ( fp().entries(), 5u );
   EXPECT_TRUE( ids( "releaseEntry", from ).empty() );

   // Without a configuration there is nothing to program.
   trapSm = CorvaneNat::TrapSmIs(
       1, nullptr, Corvane::CorvaneTcamGroupManager::Ptr( &platform->tcamManager() ) );
   EXPECT_TRUE( trapSm->initialized() );
   EXPECT_EQ( mark(), from );
}

TEST_F( TrapSmTest, UnsupportedTcpControlIsReportedAndStillQualified ) {
   start();
   make();
   trapSm->tcamEntryIs( TrapSm::TcamEntry( keyA ) );
   std::string const setting = Fwk::traceSetting();
   std::vector<std::string> traces;
   Fwk::TraceSink const previous =
       Fwk::traceSinkIs( [&traces]( Fwk::TraceRecord const& r ) {
          traces.push_back( r.function + ": " + r.message );
       } );
   Fwk::traceSettingIs( "ApiCorvane/0" );
   U32 const id =
       trapSm->programTcpControlEntry( keyA, permit( {}, {} ), TcpControl( 8u ) );
   Fwk::traceSinkIs( previous );
   Fwk::traceSettingIs( setting );
   EXPECT_EQ(
       traces,
       std::vector<std::string>{
           "programTcpControlEntry: Error: Only SYN/FIN/RST check is supported." } );
   EXPECT_EQ( fp().entry( id )->qualifierArgs( Chip::Qualifier::TcpControl ),
              ( Chip::Args{ Chip::numberArg( 8 ), Chip::numberArg( 7 ) } ) );
   EXPECT_EQ( fp().entry( id )->description(), "NAT acl:   EM_HIT any => CPU" );
   EXPECT_TRUE( trapSm->tcamEntry( keyA ).entryIdHas( id ) );
}

TEST_F( TrapSmTest, ZeroIdInARowIsWarnedInFreeEntryAndFatalInDelete ) {
   start();
   make();
   TrapSm::TcamEntry row( keyA );
   row.entryIdIs( 0 );
   trapSm->tcamEntryIs( row );
   trapSm->freeEntry( keyA );
   EXPECT_TRUE( trapSm->tcamEntryHas( keyA ) ) << "the row stays";
   EXPECT_TRUE( logs.empty() );
   EXPECT_DEATH( trapSm->deleteTrapRule( keyA ), "entryId" );
}

TEST_F( TrapSmTest, PacketsMeetTheEntryForTheirCase ) {
   start();
   make();
   publish( acl( keyA,
                 { deny( net( "10.9.0.0", 16 ), {} ), permit( net( "10.0.0.0", 8 ), {} ),
                   pool( net( "1.1.1.0", 24 ) ) },
                 true ) );
   Chip::Packet flow;
   flow.src = ip( "10.1.1.1" ).value();
   flow.dst = ip( "8.8.8.8" ).value();
   flow.protocol = 6;
   // The first packet of a permitted flow goes to the CPU.
   EXPECT_EQ( hit( flow ), "NAT acl:  !EM_HIT src=10.0.0.0/8 IP => CPU" );
   flow.exactMatchHit = true;
   EXPECT_EQ( hit( flow ), "NAT acl:   EM_HIT src=10.0.0.0/8 IP => Nat" );
   for ( U8 flag : { Chip::tcpSyn, Chip::tcpFin, Chip::tcpRst } ) {
      flow.tcpFlags = flag | 0x10;
      std::string const expected = std::string( "NAT acl:   EM_HIT src=10.0.0.0/8 " ) +
                                   ( flag == Chip::tcpSyn   ? "SYN"
                                     : flag == Chip::tcpFin ? "FIN"
                                                            : "RST" ) +
                                   " => CPU";
      EXPECT_EQ( hit( flow ), expected );
   }
   flow.srcClass = 8;
   EXPECT_EQ( hit( flow ), "none" ) << "dropped by the VFP stage";

   Chip::Packet denied;
   denied.src = ip( "10.9.0.1" ).value();
   denied.exactMatchHit = true;
   EXPECT_EQ( hit( denied ), "NAT acl:   EM_HIT src=10.9.0.0/16 deny => SkipNat" );
   Chip::Packet other;
   other.src = ip( "20.0.0.1" ).value();
   other.exactMatchHit = true;
   EXPECT_EQ( hit( other ), "NAT acl:   EM_HIT Implicit deny =>" );
   other.exactMatchHit = false;
   EXPECT_EQ( hit( other ), "none" );

   Chip::Packet toPool;
   toPool.src = ip( "20.0.0.1" ).value();
   toPool.dst = ip( "1.1.1.7" ).value();
   EXPECT_EQ( hit( toPool ), "NAT pool: !EM_HIT dst=1.1.1.0/24 IP => CPU" );
   toPool.exactMatchHit = true;
   toPool.protocol = 6;
   EXPECT_EQ( hit( toPool ), "NAT pool:  EM_HIT dst=1.1.1.0/24 TCP_DATA => Skip CPU" );
   toPool.tcpFlags = Chip::tcpSyn;
   EXPECT_EQ( hit( toPool ), "NAT pool:  EM_HIT dst=1.1.1.0/24 TCP_CTRL => CPU" );
   toPool.protocol = 17;
   EXPECT_EQ( hit( toPool ), "NAT pool:  EM_HIT dst=1.1.1.0/24 IP => Skip CPU" );
}

TEST( TrapSmValues, TcpControlTextForms ) {
   for ( auto const& c :
         std::vector<std::pair<TcpControl, std::string>>{ { TcpControl::none, "none" },
                                                          { TcpControl::FIN, "FIN" },
                                                          { TcpControl::SYN, "SYN" },
                                                          { TcpControl::RST, "RST" },
                                                          { TcpControl( 8u ), "8" } } ) {
      std::ostringstream os;
      os << c.first;
      EXPECT_EQ( os.str(), c.second );
      TcpControl parsed;
      EXPECT_TRUE( TcpControl::fromString( c.second, parsed ) ) << c.second;
      EXPECT_EQ( parsed, c.first );
   }
   TcpControl parsed;
   for ( char const* bad : { "", "syn", "SYN ", "-1", "4294967296", "x1" } ) {
      EXPECT_FALSE( TcpControl::fromString( bad, parsed ) ) << bad;
   }
   EXPECT_EQ( TcpControl::mask_, 7 );
}

TEST( TrapSmValues, TcamEntryTextEqualityAndNoParsing ) {
   TrapSm::TcamEntry row( Oro::NatTrapKey( "acl1", 7 ) );
   row.entryIdIs( 12 );
   std::ostringstream os;
   os << row;
   EXPECT_EQ(
       os.str(),
       "Value('CorvaneNat::TrapSm::TcamEntry', ** {'key': aclName: acl1, vlanId: 7, "
       "'entryId': None})" );
   TrapSm::TcamEntry same( Oro::NatTrapKey( "acl1", 7 ) );
   EXPECT_NE( row, same );
   same.entryIdIs( 12 );
   EXPECT_EQ( row, same );
   row.entryIdDelAll();
   EXPECT_EQ( row, TrapSm::TcamEntry( Oro::NatTrapKey( "acl1", 7 ) ) );
   EXPECT_DEATH( TrapSm::TcamEntry::fromStrep( os.str() ),
                 "No String constructor for TcamEntry - has collection" );
}

}  // namespace
