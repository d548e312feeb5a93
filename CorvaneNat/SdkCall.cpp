#include "CorvaneNat/SdkCall.h"

#include <cstdio>
#include <cstring>

#include "CorvaneNat/NatTrace.h"
#include "platform/chip/Sdk.h"
#include "platform/fwk/Assert.h"

namespace Corvane {

namespace {

char const* baseName( char const* path ) {
   char const* slash = std::strrchr( path, '/' );
   return slash ? slash + 1 : path;
}

}  // namespace

int sdkCallDone( int rc, char const* callText, char const* file, int line,
                 char const* function ) {
   if ( rc < 0 ) {
      std::fprintf( stderr, "%s:%d %s API ERROR:%s (rc:%d)\n", baseName( file ), line,
                    callText, Shim::sdk_->bcm_errmsg( rc ), rc );
      std::fflush( stderr );
      FWK_ASSERT( 0 );
   }
   NAT_TRACE( 4, function, callText << " (rc:" << rc << ")" );
   return rc;
}

int sdkCallDoneTolerating( int rc, int tolerated, char const* callText, char const* file,
                           int line, char const* function ) {
   if ( rc == tolerated ) {
      return rc;
   }
   return sdkCallDone( rc, callText, file, line, function );
}

int sdkReadDone( int rv, char const* callText, char const* function ) {
   NAT_TRACE( 4, function, callText << " (rv:" << rv << ")" );
   return rv;
}

}  // namespace Corvane
