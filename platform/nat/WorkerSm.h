#pragma once

// The generic NAT worker of one chip module, the base of a plug-in's NAT programmer.
//
// It holds what every NAT worker reads: the transaction requests, the module's answers,
// the shadow, the two uid tables, the module sets and the capability configuration and
// status. It drives the transactions: once the worker is initialized it serves every
// request that is pending (in the order the requests arrived, those present before the
// worker was built first), then each new request as it is published, by calling
// doCommitHwConfig( uid ) once per request written. Nothing is served before
// initialization; a request removed before it is served is skipped.
//
// initializedIs() announces a change of `initialized`; handleInitialized() then runs from
// the event loop (a derived worker overrides it and calls the base's last, which starts
// serving requests). Changes of the capability configuration reach fragmentEnabledIs()
// and handleProfileChange(). A worker that is being removed is silenced first with
// hasNotificationActiveIs( false ): it then serves and handles nothing more.
//
// Null entities are missing state: without a request directory nothing is ever served;
// without a capability configuration the modes are off.

#include <deque>
#include <memory>
#include <string>

#include "platform/fwk/Entity.h"
#include "platform/nat/HwKeyUidTable.h"
#include "platform/nat/ModSetDir.h"
#include "platform/nat/NatCapability.h"
#include "platform/nat/NatHwShadow.h"
#include "platform/nat/UidHwKeyTable.h"
#include "platform/nat/XactSluiceDir.h"

namespace CorvaneNat {

class WorkerSm : public Fwk::Entity {
public:
   typedef Fwk::Ptr<WorkerSm> Ptr;
   typedef Fwk::PtrConst<WorkerSm> PtrConst;
   static constexpr Fwk::AttributeId attrInitialized = 1;
   static constexpr Fwk::AttributeId attrFragmentEnabled = 2;

   Xact::XactSluiceConfigDir const* xactSluiceConfigDir() const {
      return xactSluiceConfigDir_.ptr();
   }
   Xact::XactSluiceStatusDir* xactSluiceStatusDir() const {
      return xactSluiceStatusDir_.ptr();
   }
   Oro::NatHwShadow const* shadow() const { return shadow_.ptr(); }
   UidHwKeyTable const* uidHwKeyTable() const { return uidHwKeyTable_.ptr(); }
   HwKeyUidTable const* hwKeyUidTable() const { return hwKeyUidTable_.ptr(); }
   ModSetDir const* modSetDir() const { return modSetDir_.ptr(); }
   CapabilityConfig const* capabilityConfig() const { return capabilityConfig_.ptr(); }
   CapabilityStatus* capabilityStatus() const { return capabilityStatus_.ptr(); }

   bool initialized() const { return initialized_; }
   // Sets `initialized`; a change makes handleInitialized() run from the event loop.
   void initializedIs( bool initialized );
   // Starts serving transactions when initialized (pending ones first), stops otherwise.
   virtual void handleInitialized();

   // Dynamic NAT translates addresses only, as the capability configuration says.
   bool isAddrOnlyMode() const;

   bool fragmentEnabled() const { return fragmentEnabled_; }
   // Sets whether fragment entries are made; a change is reported in the capability
   // status and then handled by handleFragment() at once.
   void fragmentEnabledIs( bool fragmentEnabled );
   // Adds or removes fragment entries after fragmentEnabled changed; nothing by default.
   virtual void handleFragment() {}
   // The chip's TCAM resource profile changed; the base reports it in the status.
   virtual void handleProfileChange( ResourceProfile profile );

   // Commits one transaction: called once per request written, only when initialized.
   virtual void doCommitHwConfig( Uid uid ) = 0;

   bool notificationActive() const { return notificationActive_; }
   // Switches the worker's own reactors on or off (off: it serves and handles nothing).
   virtual void hasNotificationActiveIs( bool active );

protected:
   WorkerSm( Xact::XactSluiceConfigDir::PtrConst const& xactSluiceConfigDir,
             Xact::XactSluiceStatusDir::Ptr const& xactSluiceStatusDir,
             Oro::NatHwShadow::PtrConst const& shadow,
             UidHwKeyTable::PtrConst const& uidHwKeyTable,
             HwKeyUidTable::PtrConst const& hwKeyUidTable,
             ModSetDir::PtrConst const& modSetDir,
             CapabilityConfig::PtrConst const& capabilityConfig,
             CapabilityStatus::Ptr const& capabilityStatus );
   ~WorkerSm() override;
   // Puts the base's own reactors to rest (a derived worker's teardown calls it in its
   // place in the order; the destructor does it otherwise).
   void reactorsDel();

private:
   class RequestReactor;
   class ConfigReactor;
   class SelfReactor;

   void handleXactRequest( Xact::XactSluiceKey const& key );
   void handleCapabilityConfig( Fwk::AttributeId attr );

   Xact::XactSluiceConfigDir::PtrConst xactSluiceConfigDir_;
   Xact::XactSluiceStatusDir::Ptr xactSluiceStatusDir_;
   Oro::NatHwShadow::PtrConst shadow_;
   UidHwKeyTable::PtrConst uidHwKeyTable_;
   HwKeyUidTable::PtrConst hwKeyUidTable_;
   ModSetDir::PtrConst modSetDir_;
   CapabilityConfig::PtrConst capabilityConfig_;
   CapabilityStatus::Ptr capabilityStatus_;

   std::unique_ptr<RequestReactor> requestReactor_;
   std::unique_ptr<ConfigReactor> configReactor_;
   std::unique_ptr<SelfReactor> selfReactor_;

   // Requests that arrived before transactions were served, in arrival order.
   std::deque<Xact::XactSluiceKey> pending_;
   bool initialized_ = false;
   bool serving_ = false;
   bool fragmentEnabled_ = false;
   bool notificationActive_ = false;
};

}  // namespace CorvaneNat
