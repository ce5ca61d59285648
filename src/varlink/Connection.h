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
#include "varlink/Admission.h"
#include "varlink/Call.h"

#include <deque>
#include <functional>
#include <memory>

namespace Varlink {

class Connection final : public Replies, public std::enable_shared_from_this< Connection > {
 public:
   enum class End : U8 {
      hungUp,     // by the client, or it does not speak the protocol
      tooLong,    // its call was
      notReading, // its answers were not taken
      madeRoom,   // for another client
   };
   // Called once, when the connection is closed; may drop the last reference to it.
   using Closed = std::function< void( Connection const & connection, End end ) >;

   // What the connection needs of its surroundings; all of it must outlive the connection.
   struct Surroundings {
      Valen::Linux::EventLoop & loop;
      Service & service;
      Limits const & limits;
      Closed closed;
      std::function< bool( Connection const & connection ) > mayLast;
   };

   // `number` is the client's, as Call::client has it.
   Connection( Surroundings const & surroundings, Valen::Linux::Fd fd, Caller caller, Rank rank,
               U64 number );
   ~Connection() override;

   // Begins to take calls.
   void start() { listen(); }
   void close( End end );

   U64 number() const noexcept { return number_; }
   // Whether the client would lose nothing if the connection were closed.
   bool idle() const noexcept { return state_ == State::idle && !needed_; }
   // Whether the client has sent something that was not read yet.
   bool hasInput() const noexcept;
   // What decides whether it makes room for another.
   Seat seat() const noexcept;

   void send( Encoded message ) override;
   void finished() override;
   std::size_t waiting() const noexcept override { return waiting_; }
   bool mayLast() const override { return lasting_ || needed_ || surroundings_.mayLast( *this ); }
   void lasts() noexcept override { lasting_ = true; }
   void neededIs( bool needed ) noexcept override { needed_ = needed; }

 private:
   enum class State : U8 { idle, calling, answering, draining, closed };

   void listen();
   void ready( U32 events );
   void read();
   void flush();
   void taken( std::size_t bytes );
   void proceed();
   void proceedLater();
   void begin( std::string const & text );

   Surroundings const surroundings_;
   Valen::Linux::Fd fd_;
   Caller const caller_;
   Rank const rank_;
   U64 const number_;
   State state_ = State::idle;
   Framing in_;
   bool inputEnded_ = false;   // the client sends nothing more; it may still wait for answers
   std::deque< Encoded > out_; // none is empty
   std::size_t written_ = 0;   // of the first
   std::size_t waiting_ = 0;   // bytes of out_ that are not written
   Gantry::Timer stalled_;     // runs while answers wait and none is taken
   Gantry::PostedWork posted_;
   std::optional< U32 > listensFor_; // the events that the loop reports
   bool lasting_ = false;            // the call in progress is a watch or the like
   bool needed_ = false;
   Gantry::Time lastActive_; // when the client did something last, first by connecting
   Gantry::Time lastTaken_;  // when it took some of its answers last, or the first of them came
};

} // namespace Varlink
