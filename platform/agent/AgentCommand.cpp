#include "platform/agent/AgentCommand.h"

#include <unistd.h>

#include <cerrno>

namespace Agent {

// Watches the request itself without holding it (the request owns this reactor).
class AgentAsyncCommandRequestSm::SelfReactor : public Fwk::Reactor {
public:
   explicit SelfReactor( AgentAsyncCommandRequestSm* sm ) : Reactor( sm ), sm_( sm ) {}
   void onAttribute( Fwk::AttributeId attr, Fwk::KeyRef ) override {
      if ( attr == attrInitialized ) {
         sm_->handleInitialized();
      }
   }

private:
   AgentAsyncCommandRequestSm* sm_;
};

AgentAsyncCommandRequestSm::AgentAsyncCommandRequestSm( std::string name,
                                                        AgentCommandRequest request,
                                                        Fwk::Seconds quantum,
                                                        Fwk::Clock::Ptr clock )
    : Entity( std::move( name ) ),
      request_( std::move( request ) ),
      clock_( std::move( clock ) ),
      selfReactor_( std::make_unique<SelfReactor>( this ) ),
      maxRunTime_( quantum ) {
   FWK_ASSERT( clock_ );
   selfReactor_->hasNotificationActiveIs( true );
}

AgentAsyncCommandRequestSm::~AgentAsyncCommandRequestSm() = default;

void AgentAsyncCommandRequestSm::hasNotificationActiveIs( bool active ) {
   selfReactor_->hasNotificationActiveIs( active );
}

void AgentAsyncCommandRequestSm::initializedIs( bool initialized ) {
   if ( initialized_ == initialized ) {
      return;
   }
   initialized_ = initialized;
   notify( attrInitialized );
}

void AgentAsyncCommandRequestSm::handleInitialized() {
   if ( initialized_ && !executionCompleted_ && !running_ ) {
      startTime_ = clock_->now();
      runCommand();
   }
}

void AgentAsyncCommandRequestSm::runCommand() {
   running_ = true;
   sliceStart_ = clock_->now();
   ++slices_;
   handleAsyncCommand( request_.socket, request_.format );
   flush();
   Fwk::Seconds took = clock_->now() - sliceStart_;
   if ( took > longestSlice_ ) {
      longestSlice_ = took;
   }
   if ( executionCompleted_ ) {
      running_ = false;
      endTime_ = clock_->now();
      return;
   }
   ++yieldCount_;
   Ptr self( this );
   Fwk::activityManager().post( [self] {
      if ( self->selfReactor_->notificationActive() && !self->executionCompleted_ ) {
         self->runCommand();
      }
   } );
}

void AgentAsyncCommandRequestSm::output( char const* text, std::size_t size ) {
   buffer_.append( text, size );
   // A slice that does not yield when asked still writes out what outgrows the buffer.
   if ( buffer_.size() >= 2 * maxBufferSize_ ) {
      ++bufferFullCount_;
      flush();
   }
}

bool AgentAsyncCommandRequestSm::isTimeQuantaExpired() const {
   return clock_->now() - sliceStart_ >= maxRunTime_;
}

bool AgentAsyncCommandRequestSm::isBufferFull() const {
   return buffer_.size() >= maxBufferSize_;
}

bool AgentAsyncCommandRequestSm::shouldYield() {
   if ( isTimeQuantaExpired() ) {
      ++timeYieldCount_;
      return true;
   }
   if ( isBufferFull() ) {
      ++bufferYieldCount_;
      return true;
   }
   return false;
}

void AgentAsyncCommandRequestSm::executionCompletedIs( bool completed ) {
   if ( executionCompleted_ == completed ) {
      return;
   }
   executionCompleted_ = completed;
   notify( attrExecutionCompleted );
}

void AgentAsyncCommandRequestSm::flush() {
   std::size_t done = 0;
   while ( done < buffer_.size() && request_.socket >= 0 ) {
      ssize_t n =
          ::write( request_.socket, buffer_.data() + done, buffer_.size() - done );
      if ( n < 0 && errno == EINTR ) {
         continue;
      }
      if ( n <= 0 ) {
         break;  // the requester went away; the output is dropped
      }
      done += static_cast<std::size_t>( n );
   }
   buffer_.clear();
}

AgentAsyncCommandRequestSm::Ptr runAgentCommand( AgentCommandCallback& callback,
                                                 AgentCommandRequest const& request ) {
   AgentAsyncCommandRequestSm::Ptr sm =
       callback.createAgentAsyncCommandRequestSm( request );
   if ( sm ) {
      sm->initializedIs( true );
   }
   return sm;
}

}  // namespace Agent
