#include "platform/fwk/Quay.h"

namespace Quay {

namespace {
Task* running = nullptr;
}  // namespace

TaskScheduler::Ptr TaskSchedulerRoot::findOrCreateScheduler() {
   static TaskScheduler::Ptr scheduler( new TaskScheduler( "root" ) );
   return scheduler;
}

Task::Task( TaskScheduler::Ptr scheduler, std::string name, int priority )
    : Timer( std::move( name ), priority ), scheduler_( std::move( scheduler ) ) {}

Task* Task::currentTask() {
   return running;
}

void Task::onDue() {
   Task* previous = running;
   running = this;
   running_ = true;
   deliver( run, Fwk::KeyRef(), Fwk::activityManager().changeCount() + 1 );
   running_ = false;
   running = previous;
}

TimerTask::Ptr TimerTask::TimerTaskIs( TaskScheduler::Ptr scheduler, std::string name,
                                       int priority ) {
   return Ptr( new TimerTask( std::move( scheduler ), std::move( name ), priority ) );
}

void TimerTask::scheduleTaskDelay( Fwk::Seconds delay ) {
   scheduleAt( Fwk::activityManager().clock()->now() + delay );
}

void TimerTask::onDue() {
   if ( enabled_ ) {
      Task::onDue();
   }
}

}  // namespace Quay
