#include "platform/nat/CorvaneCommonSmData.h"

namespace Corvane {

std::string valueToStrep( TcamFlashDownloadReq req ) {
   switch ( req ) {
      case tcamFlashDownloadReqNone:
         return "tcamFlashDownloadReqNone";
      case tcamFlashDownloadReqAcl:
         return "tcamFlashDownloadReqAcl";
      case tcamFlashDownloadReqQos:
         return "tcamFlashDownloadReqQos";
      case tcamFlashDownloadReqL3Status:
         return "tcamFlashDownloadReqL3Status";
   }
   return std::to_string( static_cast<U32>( req ) );
}

// Defined here so that the type's vtable and type information live in the platform
// library only, and type checks agree between the host and the plug-ins.
CorvaneCommonSmData::~CorvaneCommonSmData() = default;

void CorvaneCommonSmData::hitlessRestartIs( bool hitlessRestart ) {
   hitlessRestart_ = hitlessRestart;
   notify( attrHitlessRestart );
}

}  // namespace Corvane
