#pragma once

// What a NAT worker and the worker root are built from, each as one value. Two values
// are equal when they name the very same entities (and, for a worker, the same module):
// an owner that is asked again for an object built from an equal value keeps the one it
// has.

#include <tuple>

#include "platform/agent/TableCapacity.h"
#include "platform/mount/VekSharedMemEntityManager.h"
#include "platform/nat/CorvaneCommonSmData.h"
#include "platform/nat/McastTranslationMode.h"
#include "platform/nat/NatTrapConfig.h"
#include "platform/nat/TcamHitCountStatus.h"
#include "platform/nat/WorkerSm.h"
#include "platform/tcam/CorvaneTcamGroupManager.h"

namespace Corvane {

// A worker's: the shared NAT tables, its module's status directory, the capability
// records, its module, and the agent's entities it watches or writes.
struct NatWorkerDeps {
   Xact::XactSluiceConfigDir::PtrConst xactSluiceConfigDir;
   Xact::XactSluiceStatusDir::Ptr xactSluiceStatusDir;
   Oro::NatHwShadow::PtrConst shadow;
   CorvaneNat::UidHwKeyTable::PtrConst uidHwKeyTable;
   CorvaneNat::HwKeyUidTable::PtrConst hwKeyUidTable;
   CorvaneNat::ModSetDir::PtrConst modSetDir;
   CorvaneNat::CapabilityConfig::PtrConst capabilityConfig;
   CorvaneNat::CapabilityStatus::Ptr capabilityStatus;
   CorvaneCentral::ModId modId = 0;
   CorvaneTcamGroupManager::Ptr tcamGroupManager;
   CorvaneCommonSmData::PtrConst commonSmData;
   VekSharedMem::MountGroup::PtrConst mountGroup;
   OroCapacity::TableCapacity::Ptr tableCapacity;
   Ip::Nat::McastTranslationMode::PtrConst mcastTranslationMode;
   Oro::NatTrapConfig::PtrConst trapConfig;
   CorvaneNat::TcamHitCountStatus::Ptr tcamHitCountStatus;

private:
   auto tied() const {
      return std::tie( xactSluiceConfigDir, xactSluiceStatusDir, shadow, uidHwKeyTable,
                       hwKeyUidTable, modSetDir, capabilityConfig, capabilityStatus,
                       modId, tcamGroupManager, commonSmData, mountGroup, tableCapacity,
                       mcastTranslationMode, trapConfig, tcamHitCountStatus );
   }

public:
   bool operator==( NatWorkerDeps const& o ) const { return tied() == o.tied(); }
   bool operator!=( NatWorkerDeps const& o ) const { return !( *this == o ); }
};

// The root's: what it gives every worker, and the shared-memory entity manager through
// which it mounts each module's status directory.
struct NatWorkerRootDeps {
   CorvaneCommonSmData::PtrConst commonSmData;
   CorvaneTcamGroupManager::Ptr tcamGroupManager;
   VekSharedMem::MountGroup::PtrConst mountGroup;
   VekSharedMem::EntityManager::Ptr entityManager;
   OroCapacity::TableCapacity::Ptr tableCapacity;
   CorvaneNat::CapabilityConfig::PtrConst capabilityConfig;
   CorvaneNat::CapabilityStatus::Ptr capabilityStatus;
   CorvaneNat::TcamHitCountStatus::Ptr tcamHitCountStatus;
   Ip::Nat::McastTranslationMode::PtrConst mcastTranslationMode;
   Oro::NatTrapConfig::PtrConst trapConfig;

private:
   auto tied() const {
      return std::tie( commonSmData, tcamGroupManager, mountGroup, entityManager,
                       tableCapacity, capabilityConfig, capabilityStatus,
                       tcamHitCountStatus, mcastTranslationMode, trapConfig );
   }

public:
   bool operator==( NatWorkerRootDeps const& o ) const { return tied() == o.tied(); }
   bool operator!=( NatWorkerRootDeps const& o ) const { return !( *this == o ); }
};

}  // namespace Corvane
