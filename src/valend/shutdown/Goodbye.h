// One goodbye: the frames of an interface are sent now, and its link stays up.
//
//   begin   not ready: end. Else raise the library's flag, upon which it sends the frames, and lower it
//           at once, upon which it aborts its delay; then wait for the socket
//   timer   look again; no bytes queued, or after flushTimeout: end
//
// A restart of valend ends it without a record: the journal has it only once it has ended. Acts from
// the loop only.
#pragma once

#include "platform/gantry/Timer.h"
#include "valend/kernel/LinkPort.h"
#include "valend/shutdown/InterfaceDelay.h"
#include "valend/shutdown/ObserverList.h"

#include <functional>

namespace Valend {

class Goodbye final {
 public:
   // How long its frames may take to leave the socket.
   static constexpr std::chrono::milliseconds flushTimeout{ 200 };

   // What a goodbye works with. All must outlive it.
   struct Surroundings {
      Store & store;
      LinkPort & port;
      Quill::Ptr< Gantry::TaskScheduler > scheduler;
      std::function< void( Goodbye & ) > ended; // called before the observers
   };

   // `record` has the interface, its place and the request.
   Goodbye( Surroundings const & surroundings, ShutdownRecord record );
   Goodbye( Goodbye const & ) = delete;
   Goodbye & operator=( Goodbye const & ) = delete;

   void begin();
   // Calls the observer at the end.
   void join( ShutdownObserver observer );
   ShutdownRecord const & record() const noexcept { return record_; }

 private:
   template < class Work > void guard( Work const & work );
   void send();
   void flush();
   void end( std::string const & why );

   Surroundings const & surroundings_;
   InterfaceDelay const delay_;
   ShutdownRecord record_;
   ObserverList observers_;
   Gantry::Time const requestedAt_;
   Gantry::Time deadline_{}; // of the flushing
   Gantry::Timer timer_;
};

} // namespace Valend
