// The server's end of one connection: takes calls, one at a time, and sends their answers in order.
//
// What happens, by the state that the connection is in:
//
//   state      client sends     client takes    service answers  last answer  client hangs up
//   -------------------------------------------------------------------------------------------
//   idle       begin its call,  -               -                -            make the calls that
//              -> calling                                                     came in, then close
//   calling    -                -               keep it          -> draining  -
//   answering  leave it there   send on         send it          -> draining  close
//   draining   read it          send on; after  -                -            close
//                               all of it:
//                               -> idle
//   closed     -                -               drop it          -            -
//
// While calling, the service's function is on the stack; when it returns without a last answer, the
// connection is answering.
// Whatever the state, passing a limit closes the connection.
#pragma once

#include "linux/EventLoop.h"
#include "platform/gantry/Timer.h"
#include "varlink/Call.h"
#include "varlink/Framing.h"

#include <chrono>
#include <functional>
#include <memory>

namespace Varlink {

struct Limits {
   std::size_t messageBytes = 1u << 18;  // of one call
   std::size_t waitingBytes = 32u << 20; // of answers that a client does not take
   std::chrono::milliseconds stallTimeout = std::chrono::seconds( 10 ); // for one that takes none
   std::size_t connections = 256;
   std::size_t connectionsPerUser = 64; // except root
};

class Connection final : public Replies, public std::enable_shared_from_this< Connection > {
 public:
   enum class End : U8 {
      hungUp,      // by the client, or it does not speak the protocol
      limitPassed, // or closed to make room
   };
   // Called once, when the connection is closed; may drop the last reference to it.
   using Closed = std::function< void( Connection const & connection, End end ) >;

   // What the connection needs of its surroundings; all of it must outlive the connection.
   struct Surroundings {
      Valen::Linux::EventLoop & loop;
      Service & service;
      Limits const & limits;
      Closed closed;
   };

   // `number` is the client's, as Call::client has it.
   Connection( Surroundings const & surroundings, Valen::Linux::Fd fd, Caller caller, U64 number );
   ~Connection() override;

   // Begins to take calls.
   void start() { listen(); }
   void close( End end );

   Caller const & caller() const noexcept { return caller_; }
   U64 number() const noexcept { return number_; }
   // Whether the client would lose nothing if the connection were closed.
   bool idle() const noexcept { return state_ == State::idle && !needed_; }
   // When the client did something last; the clock's beginning if it never did.
   Gantry::Time lastActive() const noexcept { return lastActive_; }

   void send( Json const & message ) override;
   void finished() override;
   std::size_t waiting() const noexcept override { return out_.size() - written_; }
   void neededIs( bool needed ) noexcept override { needed_ = needed; }

 private:
   enum class State : U8 { idle, calling, answering, draining, closed };

   void listen();
   void ready( U32 events );
   void read();
   void flush();
   void proceed();
   void proceedLater();
   void begin( std::string const & text );

   Surroundings const surroundings_;
   Valen::Linux::Fd fd_;
   Caller const caller_;
   U64 const number_;
   State state_ = State::idle;
   Framing in_;
   bool inputEnded_ = false; // the client sends nothing more; it may still wait for answers
   std::string out_;
   std::size_t written_ = 0; // of out_
   Gantry::Timer stalled_;   // runs while answers wait and none is taken
   Gantry::PostedWork posted_;
   bool needed_ = false;
   Gantry::Time lastActive_{};
};

} // namespace Varlink
