// One connection to a server, on the loop: kept up, and looked after.
//
// What happens, by the state that the connection is in:
//
//   state       start()        success          failure, or `Timing::connect` is over
//   ----------------------------------------------------------------------------------
//   stopped     -> connecting
//   connecting                 -> greeting      lost, -> pausing
//   greeting                   -> up            lost, -> pausing
//   up                                          lost, -> pausing
//   pausing                    -> connecting, after a pause that grows
//
// To greet is to authenticate, to select the database, to say the connection's name, and to get an answer.
// A connection that is up sends a PING now and then; a server that says nothing for a time is lost, even if
// there is no error.
//
// Any callback may start, stop and destroy the connection.
#pragma once

#include "database/Connector.h"
#include "database/Reply.h"
#include "database/ReplyReader.h"
#include "platform/gantry/Backoff.h"
#include "platform/gantry/Timer.h"

#include <chrono>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <random>
#include <span>
#include <string>
#include <string_view>

namespace Database {

class Connection {
 public:
   // May be shortened by tests.
   struct Timing {
      std::chrono::milliseconds connect{
         5'000 };                              // from the beginning until the server has answered
      std::chrono::milliseconds ping{ 2'000 }; // the time between two
      std::chrono::milliseconds silence{ 6'000 };  // after which a server is lost
      std::chrono::milliseconds firstPause{ 100 }; // between two attempts
      std::chrono::milliseconds lastPause{ 5'000 };
   };
   // What is used at most. Above the limits for what is outstanding, canTake() is false.
   struct Limits {
      std::size_t replyBytes = 16u << 20;      // a larger reply is a loss
      std::size_t outstandingBytes = 1u << 20; // of commands without a reply
      std::size_t outstandingCommands = 4'096;
   };
   struct Options {
      Address address;
      std::string name; // as CLIENT LIST shows it: "valend-reader"; without spaces
      Timing timing = {};
      Limits limits = {};
   };
   // All but `lost` may be empty.
   struct Events {
      std::function< void() > connected = {}; // it is up
      // It was up, or is not after an attempt. `why` does not name the server: "connect: Connection refused".
      // The replies that were outstanding have been reported as lost.
      std::function< void( std::string const & why ) > lost = {};
      std::function< void() > ready = {}; // canTake() is true again
      // A notice of a channel that was subscribed to. Without this, a notice is a loss.
      std::function< void( std::string const & channel, std::string const & text ) > notice = {};
   };
   using OnReply = std::function< void( Reply reply ) >;
   // A command and its arguments, which may have any bytes.
   using Words = std::span< std::string_view const >;

   // Does not connect yet. `loop` must outlive this.
   Connection( Valen::Linux::EventLoop & loop, Options options, Events events );
   ~Connection(); // as stop()
   Connection( Connection const & ) = delete;
   Connection & operator=( Connection const & ) = delete;

   Address const & address() const noexcept { return connector_.address(); }

   // Connects, and again after each loss, until stop(). No effect unless stopped.
   void start();
   // Drops the connection and what is outstanding, without any callback.
   void stop() noexcept;

   bool up() const noexcept { return state_ == State::up; }
   // How often it was up.
   U64 connects() const noexcept { return connects_; }

   // Whether a command may be given: it is up, and not too much is outstanding.
   bool canTake() const noexcept { return up() && !full_; }
   // Sends a command; those of one turn of the loop leave together. Calls `reply` exactly once unless stop() is called
   // before, and never from inside this function: with the answer, or with Reply::lost. If it is not up, the command is lost. A command is
   // taken even above the limit, but the caller should look at canTake() first.
   void command( Words words, OnReply reply );
   void command( std::initializer_list< std::string_view > words, OnReply reply ) {
      command( Words( words.begin(), words.size() ), std::move( reply ) );
   }
   std::size_t outstandingBytes() const noexcept { return outstandingBytes_; }
   std::size_t outstandingCommands() const noexcept { return outstanding_.size(); }

 private:
   enum class State : U8 { stopped, connecting, greeting, up, pausing };
   struct Outstanding {
      std::size_t bytes;
      bool tooLarge; // its reply is
      OnReply reply;
   };

   void attempt();
   void socketIs( Connector::Connected connected );
   void greet( std::string const & password );
   OnReply greeting( char const * step );
   void notConnected( std::string const & why );
   void isUp();
   void close() noexcept;
   void lose( std::string const & why );

   void append( Words words, OnReply reply );
   void append( std::initializer_list< std::string_view > words, OnReply reply ) {
      append( Words( words.begin(), words.size() ), std::move( reply ) );
   }
   void flushLater();
   void flush();
   void listen();
   void ready( U32 events );
   void read();
   void take( Reply reply );
   void takeNotice( Reply const & reply ) const;
   bool isNotice( Reply const & reply ) const;
   void ping();
   void tooLate();

   Valen::Linux::EventLoop & loop_;
   Options const options_;
   std::shared_ptr< Events const > const events_; // a copy keeps them during a call
   // Expires with the connection: looked at after each callback.
   std::shared_ptr< char const > const life_ = std::make_shared< char const >();

   State state_ = State::stopped;
   U64 session_ = 0; // how often the socket was closed: what belongs to an earlier one is over
   U64 connects_ = 0;
   Gantry::Time since_{}; // when it was up last
   Gantry::Time heard_{}; // when the server sent something last
   Valen::Linux::Fd socket_;
   std::optional< U32 > listensFor_; // the events that the loop reports
   std::optional< ReplyReader > reader_;
   std::string out_;         // what is not sent yet
   std::size_t written_ = 0; // of it
   std::deque< Outstanding > outstanding_;
   std::size_t outstandingBytes_ = 0;
   bool full_ = false;
   bool flushing_ = false; // it is posted
   bool pinged_ = false;   // without an answer so far

   Gantry::Backoff backoff_;
   std::minstd_rand random_;
   Connector connector_;
   Gantry::Timer bound_; // runs while connecting and greeting
   Gantry::Timer pause_;
   Gantry::Timer ping_;
   Gantry::PostedWork posted_;
};

} // namespace Database
