// Registers the NAT entity types with the type factory, so that a mount creates them by
// type name with the argument vector { path }; the entity is named by the path.

#include "platform/fwk/TypeFactory.h"
#include "platform/nat/CorvaneCommonSmData.h"
#include "platform/nat/HwKeyUidTable.h"
#include "platform/nat/McastTranslationMode.h"
#include "platform/nat/ModSetDir.h"
#include "platform/nat/NatCapability.h"
#include "platform/nat/NatHwShadow.h"
#include "platform/nat/NatTrapConfig.h"
#include "platform/nat/TcamHitCountStatus.h"
#include "platform/nat/UidHwKeyTable.h"
#include "platform/nat/XactSluiceDir.h"

namespace {

using Fwk::namedEntityCreator;
using Fwk::TypeRegistration;

TypeRegistration const natHwShadowType( "Oro::NatHwShadow",
                                        namedEntityCreator<Oro::NatHwShadow>() );
TypeRegistration const hwKeyUidTableType(
    "CorvaneNat::HwKeyUidTable", namedEntityCreator<CorvaneNat::HwKeyUidTable>() );
TypeRegistration const uidHwKeyTableType(
    "CorvaneNat::UidHwKeyTable", namedEntityCreator<CorvaneNat::UidHwKeyTable>() );
TypeRegistration const xactSluiceConfigDirType(
    "Xact::XactSluiceConfigDir", namedEntityCreator<Xact::XactSluiceConfigDir>() );
TypeRegistration const xactSluiceStatusDirType(
    "Xact::XactSluiceStatusDir", namedEntityCreator<Xact::XactSluiceStatusDir>() );
TypeRegistration const modSetDirType( "CorvaneNat::ModSetDir",
                                      namedEntityCreator<CorvaneNat::ModSetDir>() );
TypeRegistration const hwCapabilitiesType(
    "Ip::Nat::HwCapabilities", namedEntityCreator<Ip::Nat::HwCapabilities>() );
TypeRegistration const capabilityConfigType(
    "CorvaneNat::CapabilityConfig", namedEntityCreator<CorvaneNat::CapabilityConfig>() );
TypeRegistration const capabilityStatusType(
    "CorvaneNat::CapabilityStatus", namedEntityCreator<CorvaneNat::CapabilityStatus>() );
TypeRegistration const mcastTranslationModeType(
    "Ip::Nat::McastTranslationMode",
    namedEntityCreator<Ip::Nat::McastTranslationMode>() );
TypeRegistration const natTrapConfigType( "Oro::NatTrapConfig",
                                          namedEntityCreator<Oro::NatTrapConfig>() );
TypeRegistration const tcamHitCountStatusType(
    "CorvaneNat::TcamHitCountStatus",
    namedEntityCreator<CorvaneNat::TcamHitCountStatus>() );
TypeRegistration const corvaneCommonSmDataType(
    "Corvane::CorvaneCommonSmData", namedEntityCreator<Corvane::CorvaneCommonSmData>() );

}  // namespace
