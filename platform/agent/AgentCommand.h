#pragma once

// The agent's asynchronous command framework.
//
// An operator's command reaches the agent as an AgentCommandRequest (command text, the
// requester's file descriptor, an output format). The command server hands it to a
// plug-in's AgentCommandCallback, which creates an AgentAsyncCommandRequestSm for the
// commands it knows (null for others). The server then initializes the request; once
// initialized it runs in slices: each slice calls handleAsyncCommand( socket, format ),
// which writes part of the output with output() and asks shouldYield() between units of
// work. A slice that returns without executionCompletedIs( true ) is resumed from the
// event loop, so other reactions run in between. Output is buffered and written to the
// descriptor at the end of each slice (and at once if a slice lets the buffer grow to
// twice maxBufferSize, which bufferFullCount counts).
//
// shouldYield() is true when the slice has run for its time quantum (on the request's
// clock) or when the buffer holds maxBufferSize bytes; a quantum of 0 yields after every
// unit of work. The counters tell how the command ran.

#include <string>

#include "platform/fwk/ActivityManager.h"
#include "platform/fwk/Entity.h"

namespace Agent {

struct AgentCommandRequest {
   std::string command;
   int socket = -1;
   std::string format = "json";
};

class AgentAsyncCommandRequestSm : public Fwk::Entity {
public:
   typedef Fwk::Ptr<AgentAsyncCommandRequestSm> Ptr;
   static constexpr Fwk::AttributeId attrInitialized = 1;
   static constexpr Fwk::AttributeId attrExecutionCompleted = 2;
   static constexpr std::size_t defaultMaxBufferSize = 64 * 1024;

   AgentCommandRequest const& request() const { return request_; }

   bool initialized() const { return initialized_; }
   // A change makes handleInitialized() run from the event loop.
   void initializedIs( bool initialized );
   // Starts running the command once initialized.
   virtual void handleInitialized();

   // Writes one slice of the output; see the design note.
   virtual void handleAsyncCommand( int socket, std::string const& format ) = 0;

   // Runs one slice now, and schedules the next from the loop unless the command
   // completed.
   void runCommand();

   // Appends to the output; the buffer is written out when full and after each slice.
   void output( std::string const& text ) { output( text.data(), text.size() ); }
   void output( char const* text, std::size_t size );
   bool shouldYield();
   bool isTimeQuantaExpired() const;
   bool isBufferFull() const;

   bool executionCompleted() const { return executionCompleted_; }
   void executionCompletedIs( bool completed );

   Fwk::Seconds maxRunTime() const { return maxRunTime_; }
   std::size_t maxBufferSize() const { return maxBufferSize_; }
   void maxBufferSizeIs( std::size_t size ) { maxBufferSize_ = size; }
   U32 yieldCount() const { return yieldCount_; }
   U32 timeYieldCount() const { return timeYieldCount_; }
   U32 bufferYieldCount() const { return bufferYieldCount_; }
   U32 bufferFullCount() const { return bufferFullCount_; }
   U32 slices() const { return slices_; }
   Fwk::Seconds startTime() const { return startTime_; }
   Fwk::Seconds endTime() const { return endTime_; }
   // The longest slice so far, on the request's clock.
   Fwk::Seconds longestSlice() const { return longestSlice_; }
   Fwk::Clock* clock() const { return clock_.ptr(); }

   // Stops reacting (the server drops a finished or abandoned request).
   void hasNotificationActiveIs( bool active );

protected:
   AgentAsyncCommandRequestSm( std::string name, AgentCommandRequest request,
                               Fwk::Seconds quantum, Fwk::Clock::Ptr clock );
   ~AgentAsyncCommandRequestSm() override;

private:
   class SelfReactor;
   void flush();

   AgentCommandRequest request_;
   Fwk::Clock::Ptr clock_;
   std::unique_ptr<SelfReactor> selfReactor_;
   std::string buffer_;
   bool initialized_ = false;
   bool executionCompleted_ = false;
   bool running_ = false;
   Fwk::Seconds maxRunTime_;
   std::size_t maxBufferSize_ = defaultMaxBufferSize;
   Fwk::Seconds sliceStart_ = 0;
   Fwk::Seconds startTime_ = 0;
   Fwk::Seconds endTime_ = 0;
   Fwk::Seconds longestSlice_ = 0;
   U32 yieldCount_ = 0;
   U32 timeYieldCount_ = 0;
   U32 bufferYieldCount_ = 0;
   U32 bufferFullCount_ = 0;
   U32 slices_ = 0;
};

class AgentCommandCallback : public Fwk::Entity {
public:
   typedef Fwk::Ptr<AgentCommandCallback> Ptr;

   // The request state machine of a command, or null for a command this callback does
   // not know.
   virtual AgentAsyncCommandRequestSm::Ptr createAgentAsyncCommandRequestSm(
       AgentCommandRequest const& request ) = 0;

protected:
   explicit AgentCommandCallback( std::string name ) : Entity( std::move( name ) ) {}
};

// Runs a command through a callback: creates its request state machine and initializes
// it; the event loop then runs it to completion. Returns the request (null when the
// callback does not know the command); the caller keeps it until executionCompleted().
AgentAsyncCommandRequestSm::Ptr runAgentCommand( AgentCommandCallback& callback,
                                                 AgentCommandRequest const& request );

}  // namespace Agent
