#pragma once

// The worker root: exactly one NAT worker for every module of the chip-common data's
// module map, and none for any other.
//
// For a module that appears (or changes) it mounts the module's transaction status table
// "corvanenat/ingXactSluiceStatusDir/<modId>", gathers the shared NAT tables and creates
// the worker; a module that leaves the map loses its worker at once. When the
// shared-memory mount group stops being ready every worker is deleted; when it is ready
// again, only the workers that exist then run doInit() (a module gets a worker back only
// when its map entry changes again). Workers are silenced before they are dropped.

#include <map>
#include <memory>

#include "CorvaneNat/NatWorkerSm.h"

namespace Corvane {

class NatWorkerRootSm : public Fwk::Entity {
public:
   typedef Fwk::Ptr<NatWorkerRootSm> Ptr;
   typedef std::map<CorvaneCentral::ModId, NatWorkerSm::Ptr> WorkerCollection;

   NatWorkerRootSm( CorvaneCommonSmData::PtrConst const& commonSmData,
                    CorvaneTcamGroupManager::Ptr const& tcamGroupManager,
                    VekSharedMem::MountGroup::PtrConst const& mountGroup,
                    VekSharedMem::EntityManager::Ptr const& entityManager,
                    OroCapacity::TableCapacity::Ptr const& tableCapacity,
                    CorvaneNat::CapabilityConfig::PtrConst const& capabilityConfig,
                    CorvaneNat::CapabilityStatus::Ptr const& capabilityStatus,
                    CorvaneNat::TcamHitCountStatus::Ptr const& tcamHitCountStatus,
                    Ip::Nat::McastTranslationMode::PtrConst const& mcastTranslationMode,
                    Oro::NatTrapConfig::PtrConst const& trapConfig );
   ~NatWorkerRootSm() override;

   void handleModule();
   void handleModule( CorvaneCentral::ModId modId );
   void handleMountGroupReady();

   // The worker of a module; an existing worker is returned when built from the very
   // same values, any other difference stops the process.
   NatWorkerSm::Ptr natWorkerSmIs(
       Xact::XactSluiceConfigDir::PtrConst const& xactSluiceConfigDir,
       Xact::XactSluiceStatusDir::Ptr const& xactSluiceStatusDir,
       Oro::NatHwShadow::PtrConst const& shadow,
       CorvaneNat::UidHwKeyTable::PtrConst const& uidHwKeyTable,
       CorvaneNat::HwKeyUidTable::PtrConst const& hwKeyUidTable,
       CorvaneNat::ModSetDir::PtrConst const& modSetDir,
       CorvaneNat::CapabilityConfig::PtrConst const& capabilityConfig,
       CorvaneNat::CapabilityStatus::Ptr const& capabilityStatus,
       CorvaneCentral::ModId modId, CorvaneTcamGroupManager::Ptr const& tcamGroupManager,
       CorvaneCommonSmData::PtrConst const& commonSmData,
       VekSharedMem::MountGroup::PtrConst const& mountGroup,
       OroCapacity::TableCapacity::Ptr const& tableCapacity,
       Ip::Nat::McastTranslationMode::PtrConst const& mcastTranslationMode,
       Oro::NatTrapConfig::PtrConst const& trapConfig,
       CorvaneNat::TcamHitCountStatus::Ptr const& tcamHitCountStatus );
   void natWorkerSmDel( CorvaneCentral::ModId modId );
   void natWorkerSmDelAll();
   NatWorkerSm::Ptr natWorkerSm( CorvaneCentral::ModId modId ) const;
   std::size_t natWorkerSms() const { return natWorkerSm_.size(); }
   WorkerCollection const& natWorkerSm() const { return natWorkerSm_; }

   void hasNotificationActiveIs( bool active );

private:
   class ScsdReactor;
   class MountGroupReactor;
   class TrapConfigReactor;

   std::unique_ptr<ScsdReactor> scsd_;
   CorvaneTcamGroupManager::Ptr tcamGroupManager_;
   std::unique_ptr<MountGroupReactor> mountGroup_;
   VekSharedMem::EntityManager::Ptr entityManager_;
   OroCapacity::TableCapacity::Ptr tableCapacity_;
   CorvaneNat::CapabilityConfig::PtrConst capabilityConfig_;
   CorvaneNat::CapabilityStatus::Ptr capabilityStatus_;
   CorvaneNat::TcamHitCountStatus::Ptr tcamHitCountStatus_;
   Ip::Nat::McastTranslationMode::PtrConst mcastTranslationMode_;
   std::unique_ptr<TrapConfigReactor> trapConfig_;
   WorkerCollection natWorkerSm_;
};

NatWorkerRootSm::Ptr NatWorkerRootSmIs(
    CorvaneCommonSmData::PtrConst const& commonSmData,
    CorvaneTcamGroupManager::Ptr const& tcamGroupManager,
    VekSharedMem::MountGroup::PtrConst const& mountGroup,
    VekSharedMem::EntityManager::Ptr const& entityManager,
    OroCapacity::TableCapacity::Ptr const& tableCapacity,
    CorvaneNat::CapabilityConfig::PtrConst const& capabilityConfig,
    CorvaneNat::CapabilityStatus::Ptr const& capabilityStatus,
    CorvaneNat::TcamHitCountStatus::Ptr const& tcamHitCountStatus,
    Ip::Nat::McastTranslationMode::PtrConst const& mcastTranslationMode,
    Oro::NatTrapConfig::PtrConst const& trapConfig );

}  // namespace Corvane
