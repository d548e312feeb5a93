#pragma once

// NAT capacity: how many field-processor entries each kind of NAT uses and how many the
// NAT group has left, per chip, in the table-capacity status ("NAT-Static", "NAT-Twice",
// "NAT-Dynamic" from the worker's entry-id table; "NAT" the group's whole allocation,
// trap entries included). The capacity helper refreshes the rows on its clock.

#include "CorvaneNat/EntryIdTable.h"
#include "platform/agent/CapacityHelperSm.h"
#include "platform/nat/CorvaneCommonSmData.h"
#include "platform/tcam/CorvaneTcamEntryManager.h"

namespace Corvane {

class NatCapacitySm : public Hardware::Capacity::CapacityHelperSm {
public:
   typedef Fwk::Ptr<NatCapacitySm> Ptr;

   NatCapacitySm( OroCapacity::TableCapacity::Ptr const& tableCapacity,
                  Fwk::Clock::Ptr const& clock,
                  CorvaneCommonSmData::PtrConst const& commonSmData,
                  EntryIdTable::PtrConst const& entryIdTable,
                  CorvaneTcamEntryManager::Ptr const& entryManager );

protected:
   void initCapacityTableFeatureMaps() override;
   void updateCapacityTable() override;

private:
   CorvaneCommonSmData::PtrConst commonSmData_;
   EntryIdTable::PtrConst entryIdTable_;
   CorvaneTcamEntryManager::Ptr entryManager_;
};

// Creates the capacity state machine with its notifications on.
NatCapacitySm::Ptr NatCapacitySmIs( OroCapacity::TableCapacity::Ptr const& tableCapacity,
                                    Fwk::Clock::Ptr const& clock,
                                    CorvaneCommonSmData::PtrConst const& commonSmData,
                                    EntryIdTable::PtrConst const& entryIdTable,
                                    CorvaneTcamEntryManager::Ptr const& entryManager );

}  // namespace Corvane
