#pragma once

// Timer tasks of the agent's task scheduler.
//
// A TimerTask is a named timer with a priority, created on a TaskScheduler. When it is
// switched on and its delay has passed, it runs: taskCurrentlyRunning() is true for the
// duration, and its reactors receive the attribute `run` synchronously. A task that is
// off when due does not run, and a run does not schedule the next one: the reactor does,
// with scheduleTaskDelay(). Reactors watch a task with Fwk::ReactorOn<TimerTask, ...>.

#include <string>

#include "platform/fwk/ActivityManager.h"

namespace Quay {

class TaskScheduler : public Fwk::Entity {
public:
   typedef Fwk::Ptr<TaskScheduler> Ptr;
   explicit TaskScheduler( std::string name ) : Entity( std::move( name ) ) {}
};

class TaskSchedulerRoot {
public:
   // The process's scheduler, made on first use.
   static TaskScheduler::Ptr findOrCreateScheduler();
};

class Task : public Fwk::Timer {
public:
   typedef Fwk::Ptr<Task> Ptr;
   enum : Fwk::AttributeId { run = 1 };

   TaskScheduler* scheduler() const { return scheduler_.ptr(); }
   bool taskCurrentlyRunning() const { return running_; }
   // The task whose run is in progress, or null.
   static Task* currentTask();

protected:
   Task( TaskScheduler::Ptr scheduler, std::string name, int priority );
   void onDue() override;

private:
   TaskScheduler::Ptr scheduler_;
   bool running_ = false;
};

class TimerTask : public Task {
public:
   typedef Fwk::Ptr<TimerTask> Ptr;

   static Ptr TimerTaskIs( TaskScheduler::Ptr scheduler, std::string name, int priority );

   bool enabled() const { return enabled_; }
   // Switches the task on or off; a task that is off when due does not run.
   void enabledIs( bool enabled ) { enabled_ = enabled; }
   // Runs the task once, `delay` seconds from now (replacing an earlier schedule).
   void scheduleTaskDelay( Fwk::Seconds delay );

protected:
   TimerTask( TaskScheduler::Ptr scheduler, std::string name, int priority )
       : Task( std::move( scheduler ), std::move( name ), priority ) {}
   void onDue() override;

private:
   bool enabled_ = false;
};

}  // namespace Quay
