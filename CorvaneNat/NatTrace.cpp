#include "CorvaneNat/NatTrace.h"

namespace Corvane {

Fwk::TraceHandle const natTraceHandle( "ApiCorvane" );

namespace {

Fwk::LogEventRegistration const configChange(
    "CORVANE_CONFIG_CHANGE", 6,
    "Configuration change requires the Corvane agent %s to restart",
    "Configuration change requires the switch ASIC to be reconfigured, requiring the "
    "Corvane agent to restart.",
    Fwk::logNoActionRequired, 0.0, 1.0, 0, 0 );
Fwk::LogEventRegistration const unexpectedRestart(
    "CORVANE_UNEXPECTED_RESTART", 3, "Unexpected restart of Corvane agent %s occurred",
    "Unexpected restart of the Corvane agent occurred.", Fwk::logContactSupportIfPersists,
    0.0, 1.0, 0, 0 );
Fwk::LogEventRegistration const natTcamResourceFull(
    "CORVANE_NAT_TCAM_RESOURCE_FULL", 3,
    "Hardware resources are insufficient to add NAT rule with key <%s>",
    "The switch is unable to program TCAM entries.",
    "Reconfigure the system to clear up hardware resources before configuring this NAT "
    "rule",
    0.0, 1.0, 0, 0 );
Fwk::LogEventRegistration const trapTcamResourceFull(
    "CORVANENAT_TRAP_TCAM_RESOURCE_FULL", 3,
    "Hardware resources are insufficient to add NAT trap filter %s",
    "The switch is unable to program the NAT trap filter due to the exhaustion of IFP "
    "resources.",
    "Reconfigure the system to free up IFP resources before configuring NAT. ", 0.0, 1.0,
    0, 0 );

}  // namespace

char const CORVANE_CONFIG_CHANGE[] = "CORVANE_CONFIG_CHANGE";
char const CORVANE_UNEXPECTED_RESTART[] = "CORVANE_UNEXPECTED_RESTART";
char const CORVANE_NAT_TCAM_RESOURCE_FULL[] = "CORVANE_NAT_TCAM_RESOURCE_FULL";
char const CORVANENAT_TRAP_TCAM_RESOURCE_FULL[] = "CORVANENAT_TRAP_TCAM_RESOURCE_FULL";

}  // namespace Corvane
