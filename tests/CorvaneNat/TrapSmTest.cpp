// The NAT trap filters on the simulated platform: which entries an ACL gets and in which
// order, what each holds, how entries are given back and running out of TCAM room.

#include <map>
#include <sstream>

#include "CorvaneNat/CorvaneNatTrapSm.h"
#include "NatTestFixture.h"

namespace {

using CorvaneNat::TcpControl;
using CorvaneNat::TrapSm;
using NatTest::ip;
using Texts = std::vector<std::string>;
using Net = Wirel::IpAddrWithFullMask;

Net net( char const* text, unsigned length ) {
   return Net( Wirel::IpAddr( ip( text ) ), Wirel::prefixMask( length ) );
}
Oro::NatTrapRule permit( Net src, Net dst ) {
   return Oro::NatTrapRule( true, src, dst );
}
Oro::NatTrapRule deny( Net src, Net dst ) {
   return Oro::NatTrapRule( false, src, dst );
}
Oro::NatTrapRule pool( Net dst ) {
   return Oro::NatTrapRule( true, {}, dst, true );
}
Oro::NatTrapRule const anyRule = permit( {}, {} );

// Rules get sequence numbers 10, 20, ... in the order given.
Oro::NatTrapAcl acl( Oro::NatTrapKey const& key, std::vector<Oro::NatTrapRule> rules,
                     bool implicitDeny = false ) {
   Oro::NatTrapAcl out( key );
   for ( std::size_t i = 0; i < rules.size(); ++i ) {
      out.ruleBySequenceIs( U32( 10 * ( i + 1 ) ), rules[i] );
   }
   out.implicitDenyIs( implicitDeny );
   return out;
}

class TrapSmTest : public ::testing::Test {
protected:
   void start( bool withAcl = false ) {
      platform =
          std::make_unique<natsim::SimPlatform>( "Corvane", chip, natsim::NatConfig() );
      if ( withAcl ) {  // an ACL present at creation is programmed by the constructor
         platform->trapConfig().trapAclIs(
             acl( keyA,
                  { permit( net( "10.0.0.0", 8 ), {} ), pool( net( "1.1.1.0", 24 ) ),
                    deny( net( "10.1.0.0", 16 ), net( "2.2.2.2", 32 ) ) },
                  true ) );
      }
      trapSm = CorvaneNat::TrapSmIs(
          1, Oro::NatTrapConfig::PtrConst( &platform->trapConfig() ), groupManager() );
   }
   void TearDown() override {
      trapSm = nullptr;
      platform.reset();
   }
   Corvane::CorvaneTcamGroupManager::Ptr groupManager() {
      return Corvane::CorvaneTcamGroupManager::Ptr( &platform->tcamManager() );
   }
   void publish( Oro::NatTrapAcl const& trapAcl ) {
      platform->trapConfig().trapAclIs( trapAcl );
      platform->loop().runUntilIdle();
   }
   void remove( Oro::NatTrapKey const& key ) {
      platform->trapConfig().trapAclDel( key );
      platform->loop().runUntilIdle();
   }
   // The name, severity and text of each log event raised.
   Texts logs() const {
      Texts out;
      for ( auto const& r : log.records ) {
         out.push_back( r.name + " " + std::to_string( r.severity ) + " " + r.message );
      }
      return out;
   }

   std::size_t mark() const { return Chip::journal().size(); }
   // The entries of one call from `from` on, in call order.
   std::vector<U32> ids( char const* call, std::size_t from = 0 ) const {
      std::vector<U32> out;
      for ( auto const& r : Chip::journal().recordsFrom( from ) ) {
         if ( r.call == call && r.entry != 0 ) {
            out.push_back( r.entry );
         }
      }
      return out;
   }
   // The calls on one entry, by name.
   std::string callsOn( U32 entryId ) const {
      std::string out;
      for ( auto const& r : Chip::journal().recordsFrom( 0 ) ) {
         if ( r.hasEntry && r.entry == entryId && r.call != "getEntry" ) {
            out += ( out.empty() ? "" : " " ) + r.call.substr( r.call.rfind( '_' ) + 1 );
         }
      }
      return out;
   }
   Chip::FieldProcessor& fp() { return platform->chip().unit( 1 )->fieldProcessor(); }
   // A chip entry as one line: qualifiers in the chip's order (addresses dotted),
   // actions in the order added, then the priority.
   std::string recipeOf( U32 entryId ) {
      Chip::FpEntry const* entry = fp().entry( entryId );
      if ( !entry ) {
         return "no entry";
      }
      std::ostringstream os;
      for ( Chip::Qualifier q : entry->qualifiers() ) {
         os << Chip::qualifierName( q );
         if ( q == Chip::Qualifier::SrcIp || q == Chip::Qualifier::DstIp ) {
            os << "=" << Wirel::IpAddr( entry->qualifier( q ).data ).stringValue() << "&"
               << Wirel::IpAddr( entry->qualifier( q ).mask ).stringValue() << " ";
         } else {
            os << Chip::json( entry->qualifierArgs( q ) ) << " ";
         }
      }
      os << "=>";
      for ( auto const& a : entry->actions() ) {
         os << " " << Chip::actionName( a.action ) << "(" << a.param0 << "," << a.param1
            << ")";
      }
      os << " @" << entry->priority();
      return os.str();
   }
   natsim::ChipConfig chip;
   std::unique_ptr<natsim::SimPlatform> platform;
   TrapSm::Ptr trapSm;
   NatTest::LogCapture log;
   Oro::NatTrapKey const keyA{ "aclA", 10 };
   Oro::NatTrapKey const keyB{ "aclB", 20 };
   std::string const aclBFull =
       "CORVANENAT_TRAP_TCAM_RESOURCE_FULL 3 Hardware resources are insufficient to add "
       "NAT trap filter aclName: aclB, vlanId: 20";
};

std::string const hitIs = "ExactMatch[0, \"bcmFieldQualifyExactMatchHitStatus\", ";
std::string const station = "MyStationHit[1, 1] SrcClassField[0, 8] ";
std::string const toCpu =
    " bcmFieldActionCopyToCpu(0,0) bcmFieldActionDrop(0,0) bcmFieldActionCosQCpuNew(6,0)";
std::string const skipCpu =
    " bcmFieldActionCopyToCpuCancel(0,0) bcmFieldActionDropCancel(0,0)";
std::string const skipEvxlt = " bcmFieldActionAssignExtractionCtrlId(0,31)";

// Each entry as its description, then what the chip holds.
TEST_F( TrapSmTest, OneAclIsProgrammedInPassOrderWithItsEntriesExactly ) {
   start( true );
   EXPECT_TRUE( trapSm->initialized() );
   std::string const d = "src=10.1.0.0/16 dst=2.2.2.2/32 deny => SkipNat: ";
   std::string const src = station + "SrcIp=10.0.0.0&255.0.0.0 DstIp=0.0.0.0&0.0.0.0 ";
   std::string const srcDst =
       station + "SrcIp=10.1.0.0&255.255.0.0 DstIp=2.2.2.2&255.255.255.255 ";
   std::string const dst = station + "DstIp=1.1.1.0&255.255.255.0 ";
   std::string const tcp = "IpProtocol[6, 255] ";
   std::string const hit = hitIs + "1, 1] =>";
   Texts const expected = {
       "NAT acl:  !EM_HIT src=10.0.0.0/8 IP => CPU: " + src + hitIs + "0, 1] =>" + toCpu +
           " @1",
       "NAT acl:  !EM_HIT " + d + srcDst + hitIs + "0, 1] => @1",
       "NAT pool: !EM_HIT dst=1.1.1.0/24 IP => CPU: " + dst + hitIs + "0, 1] =>" + toCpu +
           " @1",
       "NAT acl:   EM_HIT src=10.0.0.0/8 SYN => CPU: " + src + tcp + "TcpControl[2, 7] " +
           hit + toCpu + " @1",
       "NAT acl:   EM_HIT src=10.0.0.0/8 FIN => CPU: " + src + tcp + "TcpControl[1, 7] " +
           hit + toCpu + " @1",
       "NAT acl:   EM_HIT src=10.0.0.0/8 RST => CPU: " + src + tcp + "TcpControl[4, 7] " +
           hit + toCpu + " @1",
       "NAT acl:   EM_HIT src=10.0.0.0/8 IP => Nat: " + src + hit + " @1",
       "NAT acl:   EM_HIT " + d + srcDst + hit + skipEvxlt + " @1",
       "NAT pool:  EM_HIT dst=1.1.1.0/24 TCP_DATA => Skip CPU: " + dst + tcp +
           "TcpControl[0, 7] " + hit + skipCpu + " @1",
       "NAT pool:  EM_HIT dst=1.1.1.0/24 TCP_CTRL => CPU: " + dst + tcp + hit + toCpu +
           " @1",
       "NAT pool:  EM_HIT dst=1.1.1.0/24 IP => Skip CPU: " + dst + hit + skipCpu + " @1",
       "NAT acl:   EM_HIT Implicit deny =>: " + station + hit + skipEvxlt + " @0" };
   std::vector<U32> const id = ids( "getEntry" );
   Texts actual;
   for ( U32 i : id ) {
      actual.push_back( fp().entry( i )->description() + ": " + recipeOf( i ) );
      EXPECT_TRUE( fp().entry( i )->installed() ) << i;
   }
   EXPECT_EQ( actual, expected );
}

// Each kind of trap entry's calls in order: actions first where the entry traps,
// qualifiers first where it checks TCP control.
TEST_F( TrapSmTest, CallOrderAndDescriptionsOfAnyAndOfMasksThatAreNoPrefix ) {
   start();
   NatTest::TraceCapture trace( "ApiCorvane/4" );
   publish( acl( keyA, { anyRule,
                         deny( Wirel::IpAddrWithFullMask(
                                   Wirel::IpAddr( ip( "10.0.0.0" ) ), 0xff00ff00 ),
                               {} ),
                         pool( {} ) } ) );
   std::vector<U32> const id = ids( "getEntry" );
   ASSERT_EQ( id.size(), 11u );
   EXPECT_EQ( callsOn( id[0] ),
              "add add add MyStationHit SrcClassField SrcIp DstIp ExactMatch "
              "setPriorityForEntry installEntry" );
   EXPECT_EQ(
       callsOn( id[3] ),
       "ExactMatch MyStationHit SrcClassField IpProtocol TcpControl SrcIp DstIp add "
       "add add setPriorityForEntry installEntry" );
   auto description = [&]( int i ) { return fp().entry( id[i] )->description(); };
   EXPECT_EQ( description( 0 ), "NAT acl:  !EM_HIT any IP => CPU" );
   EXPECT_EQ( description( 1 ), "NAT acl:  !EM_HIT src=10.0.0.0/8 deny => SkipNat" );
   EXPECT_EQ( description( 2 ), "NAT pool: !EM_HIT dst=0.0.0.0/0 IP => CPU" );
   // The calls are traced under the step that makes them: the CPU trap's actions apart.
   std::map<std::string, int> traced;
   for ( std::string const& line : trace.lines ) {
      ++traced[line.substr( 0, line.find( "bcm_field_" ) )];
   }
   EXPECT_EQ( traced, ( std::map<std::string, int>{ { "programReverseTrapEntry", 19 },
                                                    { "programTcpControlEntry", 21 },
                                                    { "programTrapEntry", 20 },
                                                    { "setSkipCpuAction", 4 },
                                                    { "setSkipEvxltAction", 1 },
                                                    { "setTrapToCpuAction", 18 } } ) );
   // "any" is still qualified on both addresses.
   EXPECT_EQ( recipeOf( id[0] ), station +
                                     "SrcIp=0.0.0.0&0.0.0.0 DstIp=0.0.0.0&0.0.0.0 " +
                                     hitIs + "0, 1] =>" + toCpu + " @1" );
}

// The implicit-deny entry is kept while an ACL asks for it and released before the
// ACL entries when the last one goes; an unchanged ACL published again is released and
// allocated anew.
TEST_F( TrapSmTest, ImplicitDenyAndReleases ) {
   start();
   publish( acl( keyA, {}, true ) );
   EXPECT_EQ( fp().entryIds(), std::vector<U32>{ trapSm->implicitDenyEntryId() } );
   publish( acl( keyB, { anyRule }, true ) );
   U32 const implicitDeny = trapSm->implicitDenyEntryId();
   remove( keyA );
   EXPECT_TRUE( fp().entry( implicitDeny ) );
   publish( acl( keyA, { anyRule } ) );
   std::size_t from = mark();
   remove( keyB );
   EXPECT_EQ( ids( "releaseEntry", from ).back(), implicitDeny );
   EXPECT_EQ( trapSm->implicitDenyEntryId(), 0u );
   EXPECT_EQ( fp().entries(), 5u );

   auto const before = trapSm->tcamEntry( keyA ).entryId();
   from = mark();
   publish( acl( keyA, { anyRule } ) );
   std::vector<U32> const released = ids( "releaseEntry", from );
   EXPECT_EQ( decltype( before )( released.begin(), released.end() ), before );
   EXPECT_EQ( ids( "getEntry", from ).size(), 5u );

   publish( acl( keyB, { deny( {}, {} ) }, true ) );
   U32 const deny = trapSm->implicitDenyEntryId();
   from = mark();
   platform->trapConfig().trapAclDel( keyA );
   remove( keyB );
   EXPECT_EQ( ids( "releaseEntry", from ).front(), deny ) << "before the ACLs' entries";
   EXPECT_EQ( fp().entries(), 0u );
}

TEST_F( TrapSmTest, RunningOutMidAclLeavesNothingOfItAndNamesIt ) {
   chip.tcamEntries = 8;
   start();
   publish( acl( keyB, { anyRule, anyRule } ) );  // ten entries: none stay
   EXPECT_EQ( fp().entries(), 0u );
   EXPECT_EQ( logs(), Texts{ aclBFull } );
   log.records.clear();
   publish( acl( keyA, { anyRule } ) );  // five entries
   std::size_t const from = mark();
   publish( acl( keyB, { permit( net( "10.0.0.0", 8 ), {} ), deny( {}, {} ) }, true ) );
   // Both entries without hit and the first SYN entry; the FIN entry finds no room.
   EXPECT_EQ( ids( "getEntry", from ).size(), 3u );
   EXPECT_EQ( ids( "releaseEntry", from ).size(), 3u );
   EXPECT_EQ( trapSm->implicitDenyEntryId(), 0u ) << "not attempted";
   EXPECT_EQ( fp().entries(), 5u ) << "the other ACL keeps its entries";
   EXPECT_EQ( logs(), Texts{ aclBFull } );

   // Tried again when the ACL changes; a pool entry that finds no room is named too.
   log.records.clear();
   publish( acl( keyB, { pool( net( "1.1.1.0", 24 ) ) } ) );
   EXPECT_EQ( logs(),
              ( Texts{ "CORVANENAT_TRAP_TCAM_RESOURCE_FULL 3 Hardware resources are "
                       "insufficient to add NAT trap filter NAT pool:  EM_HIT "
                       "dst=1.1.1.0/24 IP => Skip CPU",
                       aclBFull } ) );
   EXPECT_EQ( fp().entries(), 5u );

   // The implicit-deny entry without room is traced and the ACL kept.
   remove( keyA );
   platform->tcamManager().unboundedEntryManager( 160 )->capacityIs( 1, 5 );
   log.records.clear();
   NatTest::TraceCapture trace( "ApiCorvane/0" );
   publish( acl( keyA, { anyRule }, true ) );
   EXPECT_EQ( trace.lines, Texts{ "programImplicitDenyEntryImplicit deny acl rule could "
                                  "not be programmed." } );
   EXPECT_EQ( trapSm->tcamEntry( keyA ).entryId().size(), 5u );
   EXPECT_TRUE( log.records.empty() );
}

// The state machine reacts to a change of one ACL of the configuration, only while
// active; it leaves its entries in hardware when destroyed.
TEST_F( TrapSmTest, ReactsToAclChangesOnlyWhileActive ) {
   start();
   trapSm->hasNotificationActiveIs( false );
   publish( acl( keyA, { anyRule } ) );
   EXPECT_EQ( ids( "getEntry" ).size(), 0u );
   trapSm->hasNotificationActiveIs( true );
   Oro::NatTrapConfig& config = platform->trapConfig();
   config.notify( Fwk::AttributeId( Oro::NatTrapConfig::attrTrapAcl + 1 ), keyA );
   config.notify( Oro::NatTrapConfig::attrTrapAcl );
   config.notify( Oro::NatTrapConfig::attrTrapAcl, std::string( "aclA" ) );
   platform->loop().runUntilIdle();
   EXPECT_EQ( ids( "getEntry" ).size(), 0u )
       << "other attributes and keys are not ACL changes";
   config.notify( Oro::NatTrapConfig::attrTrapAcl, keyA );
   platform->loop().runUntilIdle();
   EXPECT_EQ( ids( "getEntry" ).size(), 5u );
   // The action setters of the trap API append a step's actions to an entry.
   U32 const first = ids( "getEntry" ).front();
   TrapSm::setSkipEvxltAction( 1, first );
   EXPECT_EQ( recipeOf( first ), station +
                                     "SrcIp=0.0.0.0&0.0.0.0 DstIp=0.0.0.0&0.0.0.0 " +
                                     hitIs + "0, 1] =>" + toCpu + skipEvxlt + " @1" );

   std::size_t const from = mark();
   trapSm = nullptr;
   EXPECT_EQ( fp().entries(), 5u );
   // Without a configuration there is nothing to program.
   trapSm = CorvaneNat::TrapSmIs( 1, nullptr, groupManager() );
   EXPECT_EQ( mark(), from );
}

}  // namespace

// The flag's text form and its parsing back, as trap filters are shown and configured.
TEST( TcpControlText, ReadsBackWhatItWritesAndNumbersUpTo32Bits ) {
   struct Case {
      char const* text;
      bool parses;
      U32 value;
   } const cases[] = { { "none", true, 0 },
                       { "FIN", true, 1 },
                       { "SYN", true, 2 },
                       { "RST", true, 4 },
                       { "4294967295", true, ~0u },
                       { "4294967296", false, 0 },
                       { "00000000007", false, 0 },
                       { "8", true, 8 },
                       { "", false, 0 },
                       { "fin", false, 0 } };
   for ( Case const& c : cases ) {
      TcpControl parsed( TcpControl::RST );
      EXPECT_EQ( TcpControl::fromString( c.text, parsed ), c.parses ) << c.text;
      EXPECT_EQ( parsed, TcpControl( c.parses ? c.value : U32( TcpControl::RST ) ) )
          << c.text;
      EXPECT_EQ( parsed.stringValue(), c.parses ? c.text : "RST" );
   }
}
