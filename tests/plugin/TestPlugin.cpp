// A small plug-in for testing the host and natsim end to end. Loading registers its
// mounter and command callback. The mounter mounts the NAT tables and gives every module
// a worker that answers transactions: a programmed rule gets one field-processor entry
// matching its old source address, a removed rule loses it; a full TCAM answers 2 and
// raises TEST_PLUGIN_FULL. The worker of module M offers "doVerify" at
// "corvanenat/natWorkerSm/M" (it raises TEST_PLUGIN_VERIFIED). The command "ShowTest"
// lists the entries, one per slice.

#include <map>

#include "platform/agent/AgentCommand.h"
#include "platform/agent/MounterBase.h"
#include "platform/chip/Sdk.h"
#include "platform/fwk/LogEvent.h"
#include "platform/fwk/Operation.h"
#include "platform/fwk/TypeFactory.h"
#include "platform/mount/VekSharedMemMountDescription.h"
#include "platform/nat/CorvaneCommonSmData.h"
#include "platform/nat/NatCapability.h"
#include "platform/nat/WorkerSm.h"
#include "platform/tcam/CorvaneTcamGroupManager.h"

namespace {

Fwk::LogEventRegistration fullEvent( "TEST_PLUGIN_FULL", 3, "No room for rule %s",
                                     "The test plug-in found the TCAM full.",
                                     Fwk::logNoActionRequired, 0.0, 1.0, 0, 0 );
Fwk::LogEventRegistration verifiedEvent( "TEST_PLUGIN_VERIFIED", 6, "Verified module %s",
                                         "The test plug-in ran doVerify.",
                                         Fwk::logNoActionRequired, 0.0, 1.0, 0, 0 );

// Entry ids of the rules, shared by the workers and the show command.
std::map<U32, U32> entryOfUid;

class TestWorker : public CorvaneNat::WorkerSm {
public:
   TestWorker( VekSharedMem::EntityManager& tables, U16 modId, U16 unit,
               Corvane::CorvaneTcamEntryManager::Ptr entries )
       : WorkerSm(
             tables.getEntity<Xact::XactSluiceConfigDir const>(
                 "corvanenat/ingXactSluiceConfigDir" ),
             tables.getEntity<Xact::XactSluiceStatusDir>(
                 "corvanenat/ingXactSluiceStatusDir/" + std::to_string( modId ) ),
             tables.getEntity<Oro::NatHwShadow const>( "corvanenat/hwShadow" ),
             tables.getEntity<CorvaneNat::UidHwKeyTable const>(
                 "corvanenat/uidHwKeyTable" ),
             tables.getEntity<CorvaneNat::HwKeyUidTable const>(
                 "corvanenat/hwKeyUidTable" ),
             tables.getEntity<CorvaneNat::ModSetDir const>( "corvanenat/ingModSetDir" ),
             nullptr, nullptr ),
         modId_( modId ),
         unit_( unit ),
         entries_( std::move( entries ) ),
         offer_( "corvanenat/natWorkerSm/" + std::to_string( modId ) ) {
      offer_.operationIs( "doVerify", [this] {
         Fwk::logEventRaise( "TEST_PLUGIN_VERIFIED", { std::to_string( modId_ ) } );
      } );
   }

   void doCommitHwConfig( CorvaneNat::Uid uid ) override {
      Oro::NatHwKey key = *uidHwKeyTable()->entry( uid );
      Oro::NatHwShadowEntry const& shadowEntry = *shadow()->entry( key );
      Xact::XactSluiceStatus::Result result = Xact::XactSluiceStatus::done;
      if ( shadowEntry.dirty() == Oro::NatHwShadowEntry::deletePending ) {
         entries_->releaseEntry( unit_, entryOfUid[uid.value()] );
         entryOfUid.erase( uid.value() );
      } else {
         U32 id = entries_->getEntry( unit_, "test " + key.stringValue(),
                                      CorvaneTcam::RequestKey() );
         if ( id == 0 ) {
            Fwk::logEventRaise( "TEST_PLUGIN_FULL", { key.stringValue() } );
            result = Xact::XactSluiceStatus::hwFull;
         } else {
            Shim::sdk_->bcm_field_qualify_SrcIp(
                unit_, id, key.srcIpAndPortOld().ip().value(), 0xffffffff );
            Shim::sdk_->bcm_field_action_add(
                unit_, id, Shim::sdk_->bcmFieldActionDropCancel, 0, 0 );
            entries_->setPriorityForEntry( unit_, id, 10 );
            entries_->installEntry( unit_, id );
            entryOfUid[uid.value()] = id;
         }
      }
      Xact::XactSluiceKey xactKey( uid );
      Xact::XactSluiceStatus status;
      status.key = xactKey;
      status.result = result;
      status.field = xactSluiceConfigDir()->xactConfig( xactKey )->field;
      xactSluiceStatusDir()->xactStatusIs( status );
   }

private:
   U16 modId_;
   U16 unit_;
   Corvane::CorvaneTcamEntryManager::Ptr entries_;
   Fwk::OperationOffer offer_;
};

class TestMounter : public CorvaneLib::MounterBase {
public:
   explicit TestMounter( std::string name ) : MounterBase( std::move( name ) ) {}

   void doInit() override {
      auto group = getMountGroup();
      group->doMount( "ip/nat/hwCapabilities", "Ip::Nat::HwCapabilities", "r" );
      group->doClose();
   }

   void doMountsComplete( Orrery::MountStatus status,
                          Orrery::EntityManager::Ptr ) override {
      FWK_ASSERT( status == Orrery::mountSuccess() );
      VekSharedMem::EntityManager& tables = *sharedMemEntityManager();
      VekSharedMem::MountDescription shared( VekSharedMem::MountDescription::shared );
      auto group = tables.mountGroup();
      group->doMount( "corvanenat/ingXactSluiceConfigDir", "Xact::XactSluiceConfigDir",
                      VekSharedMem::MountDescription(
                          VekSharedMem::MountDescription::requestReader ) );
      group->doMount( "corvanenat/hwKeyUidTable", "CorvaneNat::HwKeyUidTable", shared );
      group->doMount( "corvanenat/uidHwKeyTable", "CorvaneNat::UidHwKeyTable", shared );
      group->doMount( "corvanenat/hwShadow", "Oro::NatHwShadow", shared );
      group->doMount( "corvanenat/ingModSetDir", "CorvaneNat::ModSetDir", shared );
      group->doClose();

      auto common = sharedEntity<Corvane::CorvaneCommonSmData const>( "corvaneCommon" );
      auto tcam = sharedEntity<Corvane::CorvaneTcamGroupManager>( "tcamManager" );
      for ( auto const& module : common->modIdToUnit() ) {
         tables.doMount(
             "corvanenat/ingXactSluiceStatusDir/" + std::to_string( module.first ),
             "Xact::XactSluiceStatusDir",
             VekSharedMem::MountDescription(
                 VekSharedMem::MountDescription::localStatus ) );
         Fwk::Ptr<TestWorker> worker( new TestWorker(
             tables, module.first, module.second, tcam->unboundedEntryManager( 160 ) ) );
         worker->hasNotificationActiveIs( true );
         worker->initializedIs( true );
         workers_.push_back( worker );
      }
   }

private:
   std::vector<Fwk::Ptr<TestWorker>> workers_;
};

class ShowTest : public Agent::AgentAsyncCommandRequestSm {
public:
   ShowTest( Agent::AgentCommandRequest const& request, Fwk::Clock::Ptr clock )
       : AgentAsyncCommandRequestSm( "showTest", request, 0.0, std::move( clock ) ),
         rows_( entryOfUid.begin(), entryOfUid.end() ) {}
   void handleAsyncCommand( int, std::string const& ) override {
      if ( next_ == 0 ) {
         output( "[" );
      }
      while ( next_ < rows_.size() ) {
         output( "{\"uid\": " + std::to_string( rows_[next_].first ) +
                 ", \"entry\": " + std::to_string( rows_[next_].second ) + "}," );
         ++next_;
         if ( shouldYield() ) {
            return;
         }
      }
      output( "]" );
      executionCompletedIs( true );
   }

private:
   std::vector<std::pair<U32, U32>> rows_;
   std::size_t next_ = 0;
};

class TestCallback : public Agent::AgentCommandCallback {
public:
   explicit TestCallback( std::string name )
       : AgentCommandCallback( std::move( name ) ) {}
   Agent::AgentAsyncCommandRequestSm::Ptr createAgentAsyncCommandRequestSm(
       Agent::AgentCommandRequest const& request ) override {
      if ( request.command != "ShowTest" ) {
         return nullptr;
      }
      return new ShowTest( request, Fwk::activityManager().clockPtr() );
   }
};

Fwk::TypeRegistration mounterType( "TestPlugin::Mounter",
                                   []( std::vector<std::string> const& args ) {
                                      return Fwk::Entity::Ptr(
                                          new TestMounter( args.at( 0 ) ) );
                                   } );
Fwk::TypeRegistration callbackType( "TestPlugin::CliCallback",
                                    []( std::vector<std::string> const& args ) {
                                       return Fwk::Entity::Ptr(
                                           new TestCallback( args.at( 0 ) ) );
                                    } );

}  // namespace
