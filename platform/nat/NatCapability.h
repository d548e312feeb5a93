#pragma once

// What the chip and the configuration allow NAT to do.
//
// HwCapabilities ("ip/nat/hwCapabilities") says whether the chip supports NAT at all.
// CapabilityConfig ("hardware/corvane/nat/capability/config") is the configuration that
// NAT workers follow: address-only mode (dynamic NAT without ports), fragment handling
// and the TCAM resource profile. CapabilityStatus (one per agent) is what a worker
// reports back, for example that fragment handling was switched off for lack of TCAM
// room. Each change of an attribute is announced to reactors with the attribute's id.

#include <string>

#include "platform/fwk/Entity.h"

namespace Ip {
namespace Nat {

class HwCapabilities : public Fwk::Entity {
public:
   typedef Fwk::Ptr<HwCapabilities> Ptr;
   typedef Fwk::PtrConst<HwCapabilities> PtrConst;
   static constexpr Fwk::AttributeId attrNatSupported = 1;

   explicit HwCapabilities( std::string name ) : Entity( std::move( name ) ) {}

   bool natSupported() const { return natSupported_; }
   void natSupportedIs( bool natSupported );

protected:
   ~HwCapabilities() override;

private:
   bool natSupported_ = false;
};

}  // namespace Nat
}  // namespace Ip

namespace CorvaneNat {

// A TCAM resource profile of the chip; 0 is the default profile.
typedef U32 ResourceProfile;

class CapabilityConfig : public Fwk::Entity {
public:
   typedef Fwk::Ptr<CapabilityConfig> Ptr;
   typedef Fwk::PtrConst<CapabilityConfig> PtrConst;
   static constexpr Fwk::AttributeId attrAddrOnlyMode = 1;
   static constexpr Fwk::AttributeId attrFragmentEnabled = 2;
   static constexpr Fwk::AttributeId attrResourceProfile = 3;

   explicit CapabilityConfig( std::string name ) : Entity( std::move( name ) ) {}

   // Dynamic NAT translates addresses only (no ports).
   bool addrOnlyMode() const { return addrOnlyMode_; }
   void addrOnlyModeIs( bool addrOnlyMode );
   // Non-first IP fragments get entries of their own.
   bool fragmentEnabled() const { return fragmentEnabled_; }
   void fragmentEnabledIs( bool fragmentEnabled );
   ResourceProfile resourceProfile() const { return resourceProfile_; }
   void resourceProfileIs( ResourceProfile profile );

protected:
   ~CapabilityConfig() override;

private:
   bool addrOnlyMode_ = false;
   bool fragmentEnabled_ = false;
   ResourceProfile resourceProfile_ = 0;
};

class CapabilityStatus : public Fwk::Entity {
public:
   typedef Fwk::Ptr<CapabilityStatus> Ptr;
   typedef Fwk::PtrConst<CapabilityStatus> PtrConst;
   static constexpr Fwk::AttributeId attrFragmentEnabled = 1;
   static constexpr Fwk::AttributeId attrResourceProfile = 2;

   explicit CapabilityStatus( std::string name ) : Entity( std::move( name ) ) {}

   // Whether fragment handling is in effect (it may be off although configured on).
   bool fragmentEnabled() const { return fragmentEnabled_; }
   void fragmentEnabledIs( bool fragmentEnabled );
   ResourceProfile resourceProfile() const { return resourceProfile_; }
   void resourceProfileIs( ResourceProfile profile );

protected:
   ~CapabilityStatus() override;

private:
   bool fragmentEnabled_ = false;
   ResourceProfile resourceProfile_ = 0;
};

}  // namespace CorvaneNat
