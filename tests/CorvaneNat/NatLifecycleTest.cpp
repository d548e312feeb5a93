// How the plug-in comes alive: mounts, NAT support, workers per module, the flash
// download and the mount group in either order, and the log events it registers.

#include "NatTestFixture.h"

#include <tuple>

#include "platform/mount/OrreryEntityManager.h"

namespace {

using NatTest::Lines;
using NatTest::NatFixture;

class NatLifecycle : public NatFixture {};

TEST_F( NatLifecycle, MountsInOrderThenOneInitializedWorkerPerModule ) {
   chip.modules = { { 1, 1 }, { 3, 3 } };
   start();
   Lines stateMounts;
   for ( auto const& m : platform->agent().stateDatabase->mounts() ) {
      stateMounts.push_back( m.path + " " + m.typeName + " " + m.mode );
   }
   EXPECT_EQ(
       stateMounts,
       ( Lines{ "hardware/capacity/status/nat-ifp-Corvane OroCapacity::TableCapacity w",
                "ip/nat/hwCapabilities Ip::Nat::HwCapabilities r",
                "hardware/corvane/nat/capability/config CorvaneNat::CapabilityConfig r",
                "hardware/corvane/nat/capability/status/Corvane "
                "CorvaneNat::CapabilityStatus wc",
                "hardware/corvane/nat/counters/tcam/Corvane "
                "CorvaneNat::TcamHitCountStatus wc",
                "ip/nat/mcastTranslationModeStatus Ip::Nat::McastTranslationMode r",
                "hardware/oro/nat/trap/config Oro::NatTrapConfig r" } ) );

   Lines sharedMounts;  // the plug-in's group (upstream mounts directly)
   for ( auto const& m : platform->agent().sharedMem->mounts() ) {
      if ( m.group != 0 ) {
         sharedMounts.push_back( m.path + " " + m.typeName + " " +
                                 std::to_string( m.description.mountType() ) );
      }
   }
   EXPECT_EQ( sharedMounts,
              ( Lines{ "corvanenat/ingXactSluiceConfigDir Xact::XactSluiceConfigDir 1",
                       "corvanenat/hwKeyUidTable CorvaneNat::HwKeyUidTable 2",
                       "corvanenat/uidHwKeyTable CorvaneNat::UidHwKeyTable 2",
                       "corvanenat/hwShadow Oro::NatHwShadow 2",
                       "corvanenat/ingModSetDir CorvaneNat::ModSetDir 2" } ) );
   ASSERT_EQ( mounter->rootSm()->natWorkerSms(), 2u );
   ASSERT_TRUE( worker( 1 ) && worker( 3 ) );
   EXPECT_TRUE( worker( 1 )->initialized() && worker( 3 )->initialized() );
   EXPECT_TRUE( platform->agent().sharedMem->getEntity<Xact::XactSluiceStatusDir>(
       "corvanenat/ingXactSluiceStatusDir/3" ) );

   // Without NAT support nothing more is mounted and no worker comes.
   TearDown();
   chip.natSupported = false;
   start();
   EXPECT_FALSE( mounter->rootSm() );
   for ( auto const& m : platform->agent().sharedMem->mounts() ) {
      EXPECT_EQ( m.group, 0 ) << m.path;  // upstream's own mounts only
   }
   platform->moduleIs( 2, 2 );
   loop().runUntilIdle();
   EXPECT_FALSE( mounter->rootSm() );
}

TEST_F( NatLifecycle, EitherOrderOfFlashDownloadAndMountGroupInitializesOnce ) {
   for ( bool flashFirst : { true, false } ) {
      chip.flashDownloadDone = false;
      chip.mountGroupReady = false;
      start();
      auto flash = [&] {
         platform->commonData().flashDownloadWaitIs(
             Corvane::tcamFlashDownloadReqL3Status, true );
      };
      auto ready = [&] { platform->agent().sharedMem->connectedIs( true ); };
      // Another kind of flash request completing changes nothing.
      platform->commonData().flashDownloadWaitIs( Corvane::tcamFlashDownloadReqAcl,
                                                  true );
      flashFirst ? flash() : ready();
      loop().runUntilIdle();
      EXPECT_FALSE( worker()->initialized() );
      flashFirst ? ready() : flash();
      loop().runUntilIdle();
      EXPECT_TRUE( worker()->initialized() ) << "flash first: " << flashFirst;
      // Initialized once: transactions are served from then on.
      rule( 1, NatTest::natKey( NatTest::Key::staticSrcNat, NatTest::at( "10.0.0.1" ),
                                NatTest::at( "1.1.1.1" ) ) );
      EXPECT_EQ( answers.size(), 1u );
      TearDown();
   }
}

// A module reported twice keeps its worker; a silenced root hears no module come; the
// agent finds the plug-in's mounter while it lives and nothing once it is gone.
TEST_F( NatLifecycle, ModulesTheRootHearsAndTheMounterWhileItLives ) {
   start();
   Corvane::NatWorkerSm* first = worker( 1 );
   platform->moduleIs( 1, 1 );
   loop().runUntilIdle();
   EXPECT_EQ( worker( 1 ), first );
   auto const root = mounter->rootSm();
   root->hasNotificationActiveIs( false );
   platform->moduleIs( 2, 2 );
   loop().runUntilIdle();
   EXPECT_EQ( root->natWorkerSm( 2 ).ptr(), nullptr );
   // A silenced worker answers no transaction.
   first->hasNotificationActiveIs( false );
   answers.clear();
   rule( 9, NatTest::natKey( NatTest::Key::staticSrcNat, NatTest::at( "10.0.0.9" ),
                             NatTest::at( "203.0.113.9" ) ) );
   EXPECT_EQ( answerTexts(), Lines{} );
   root->hasNotificationActiveIs( true );
   platform->moduleIs( 3, 3 );
   loop().runUntilIdle();
   EXPECT_NE( root->natWorkerSm( 3 ).ptr(), nullptr );
   EXPECT_EQ( root->natWorkerSms(), 2u );
   EXPECT_EQ( Corvane::NatMounter::natMounter(), mounter.ptr() );
   mounter = nullptr;
   EXPECT_EQ( Corvane::NatMounter::natMounter(), nullptr );
}

// The library registers its log events as it loads, as the tools that show definitions
// list them.
TEST( NatLogEvents, AreRegisteredWithTheirSeverityTextsAndRates ) {
   struct Event {
      char const* name;
      int severity;
      char const* format;
      char const* action;
   };
   Event const events[] = {
       { "CORVANE_CONFIG_CHANGE", 6,
         "Configuration change requires the Corvane agent %s to restart",
         Fwk::logNoActionRequired },
       { "CORVANE_UNEXPECTED_RESTART", 3,
         "Unexpected restart of Corvane agent %s occurred",
         Fwk::logContactSupportIfPersists },
       { "CORVANE_NAT_TCAM_RESOURCE_FULL", 3,
         "Hardware resources are insufficient to add NAT rule with key <%s>",
         "Reconfigure the system to clear up hardware resources before configuring this "
         "NAT rule" },
       { "CORVANENAT_TRAP_TCAM_RESOURCE_FULL", 3,
         "Hardware resources are insufficient to add NAT trap filter %s",
         "Reconfigure the system to free up IFP resources before configuring NAT. " },
   };
   for ( Event const& e : events ) {
      Fwk::LogEventDefinition const* d = Fwk::logEvent( e.name );
      ASSERT_TRUE( d ) << e.name;
      EXPECT_EQ( d->severity, e.severity ) << e.name;
      EXPECT_EQ( d->format, e.format );
      EXPECT_EQ( d->recommendedAction, e.action );
      EXPECT_EQ(
          std::make_tuple( d->firstRate, d->secondRate, d->firstCount, d->secondCount ),
          std::make_tuple( 0.0, 1.0, 0u, 0u ) )
          << e.name;
   }
}

}  // namespace
