// A small plug-in for testing the host and natsim end to end. Loading registers its
// mounter and command callback. The mounter mounts the NAT tables and gives every module
// a worker that answers transactions: a programmed rule gets one field-processor entry
// matching its old source address, a removed rule loses it; a full TCAM answers 2 and
// raises TEST_PLUGIN_FULL. The worker of module M offers "doVerify" at
// "corvanenat/natWorkerSm/M" (it raises TEST_PLUGIN_VERIFIED). The command "ShowTest"
// lists the entries.

#include <map>

#include "platform/agent/AgentCommand.h"
#include "platform/agent/MounterBase.h"
#include "platform/chip/Sdk.h"
#include "platform/fwk/LogEvent.h"
#include "platform/fwk/Operation.h"
#include "platform/fwk/TypeFactory.h"
#include "platform/nat/CorvaneCommonSmData.h"
#include "platform/nat/WorkerSm.h"
#include "platform/tcam/CorvaneTcamGroupManager.h"

namespace {

Fwk::LogEventRegistration fullEvent( "TEST_PLUGIN_FULL", 3, "No room for rule %s", "",
                                     Fwk::logNoActionRequired, 0.0, 1.0, 0, 0 );
Fwk::LogEventRegistration verifiedEvent( "TEST_PLUGIN_VERIFIED", 6, "Verified module %s",
                                         "", Fwk::logNoActionRequired, 0.0, 1.0, 0, 0 );

// Entry ids of the rules, shared by the workers and the show command.
std::map<U32, U32> entryOfUid;

template <class T>
auto get( VekSharedMem::EntityManager& tables, std::string const& path ) {
   return tables.getEntity<T>( "corvanenat/" + path );
}

class TestWorker : public CorvaneNat::WorkerSm {
public:
   TestWorker( VekSharedMem::EntityManager& tables, U16 modId, U16 unit,
               Corvane::CorvaneTcamEntryManager::Ptr entries )
       : WorkerSm(
             get<Xact::XactSluiceConfigDir const>( tables, "ingXactSluiceConfigDir" ),
             get<Xact::XactSluiceStatusDir>(
                 tables, "ingXactSluiceStatusDir/" + std::to_string( modId ) ),
             get<Oro::NatHwShadow const>( tables, "hwShadow" ),
             get<CorvaneNat::UidHwKeyTable const>( tables, "uidHwKeyTable" ),
             get<CorvaneNat::HwKeyUidTable const>( tables, "hwKeyUidTable" ),
             get<CorvaneNat::ModSetDir const>( tables, "ingModSetDir" ), nullptr,
             nullptr ),
         unit_( unit ),
         entries_( std::move( entries ) ),
         offer_( "corvanenat/natWorkerSm/" + std::to_string( modId ) ) {
      offer_.operationIs( "doVerify", [modId] {
         Fwk::logEventRaise( "TEST_PLUGIN_VERIFIED", { std::to_string( modId ) } );
      } );
   }

   void doCommitHwConfig( CorvaneNat::Uid uid ) override {
      Oro::NatHwKey key = *uidHwKeyTable()->entry( uid );
      Xact::XactSluiceStatus::Result result = Xact::XactSluiceStatus::done;
      if ( shadow()->entry( key )->dirty() == Oro::NatHwShadowEntry::deletePending ) {
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
      xactSluiceStatusDir()->xactStatusIs(
          { xactKey, result, xactSluiceConfigDir()->xactConfig( xactKey )->field } );
   }

private:
   U16 unit_;
   Corvane::CorvaneTcamEntryManager::Ptr entries_;
   Fwk::OperationOffer offer_;
};

class TestMounter : public CorvaneLib::MounterBase {
public:
   explicit TestMounter( std::string name ) : MounterBase( name ) {}

   void doInit() override {
      auto group = getMountGroup();
      group->doMount( "ip/nat/hwCapabilities", "Ip::Nat::HwCapabilities", "r" );
      group->doClose();
   }

   void doMountsComplete( Orrery::MountStatus status,
                          Orrery::EntityManager::Ptr ) override {
      FWK_ASSERT( status == Orrery::mountSuccess() );
      using VekSharedMem::MountDescription;
      VekSharedMem::EntityManager& tables = *sharedMemEntityManager();
      MountDescription const shared( MountDescription::shared );
      tables.doMount( "corvanenat/ingXactSluiceConfigDir", "Xact::XactSluiceConfigDir",
                      MountDescription( MountDescription::requestReader ) );
      tables.doMount( "corvanenat/hwKeyUidTable", "CorvaneNat::HwKeyUidTable", shared );
      tables.doMount( "corvanenat/uidHwKeyTable", "CorvaneNat::UidHwKeyTable", shared );
      tables.doMount( "corvanenat/hwShadow", "Oro::NatHwShadow", shared );
      tables.doMount( "corvanenat/ingModSetDir", "CorvaneNat::ModSetDir", shared );
      auto common = sharedEntity<Corvane::CorvaneCommonSmData const>( "corvaneCommon" );
      auto tcam = sharedEntity<Corvane::CorvaneTcamGroupManager>( "tcamManager" );
      for ( auto const& module : common->modIdToUnit() ) {
         tables.doMount(
             "corvanenat/ingXactSluiceStatusDir/" + std::to_string( module.first ),
             "Xact::XactSluiceStatusDir",
             MountDescription( MountDescription::localStatus ) );
         workers_.push_back( new TestWorker( tables, module.first, module.second,
                                             tcam->unboundedEntryManager( 160 ) ) );
         workers_.back()->hasNotificationActiveIs( true );
         workers_.back()->initializedIs( true );
      }
   }

private:
   std::vector<Fwk::Ptr<TestWorker>> workers_;
};

class ShowTest : public Agent::AgentAsyncCommandRequestSm {
public:
   explicit ShowTest( Agent::AgentCommandRequest const& request )
       : AgentAsyncCommandRequestSm( "showTest", request, 0.0,
                                     Fwk::activityManager().clockPtr() ) {}
   void handleAsyncCommand( int, std::string const& ) override {
      output( "[" );
      for ( auto const& [uid, entry] : entryOfUid ) {
         output( "{\"uid\": " + std::to_string( uid ) +
                 ", \"entry\": " + std::to_string( entry ) + "}," );
      }
      output( "]" );
      executionCompletedIs( true );
   }
};

class TestCallback : public Agent::AgentCommandCallback {
public:
   explicit TestCallback( std::string name ) : AgentCommandCallback( name ) {}
   Agent::AgentAsyncCommandRequestSm::Ptr createAgentAsyncCommandRequestSm(
       Agent::AgentCommandRequest const& request ) override {
      return request.command == "ShowTest" ? new ShowTest( request ) : nullptr;
   }
};

Fwk::TypeRegistration mounterType( "TestPlugin::Mounter", []( auto const& args ) {
   return Fwk::Entity::Ptr( new TestMounter( args.at( 0 ) ) );
} );
Fwk::TypeRegistration callbackType( "TestPlugin::CliCallback", []( auto const& args ) {
   return Fwk::Entity::Ptr( new TestCallback( args.at( 0 ) ) );
} );

}  // namespace
