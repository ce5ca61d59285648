// All that belongs to one server and one prefix: the connections, and what goes over them.
#pragma once

#include "database/Leases.h"
#include "database/Mirror.h"
#include "database/Outbox.h"
#include "database/address/Address.h"
#include "valend/database/Alive.h"
#include "valend/database/HistoryWriter.h"

#include <array>
#include <functional>
#include <string>

namespace Valend {

class DatabaseSession {
 public:
   struct Options {
      Database::Address address;
      std::string prefix;
      Database::Connection::Timing timing = {};
   };
   // None may be empty.
   struct Events {
      // What is read, by name: see Mirror.h.
      std::function< void( std::string const & name, Database::Fields const & fields ) > entityIs;
      std::function< void( std::string const & name ) > entityGone;
      std::function< void( std::string const & name, std::string const & why ) > unreadable;
      std::function< void() > complete;
      std::function< void( std::string const & key, bool exists ) > leaseIs;
      std::function< Database::Fields() > alive; // the fields of the sign of life
      std::function< void( std::string const & why ) >
         problem; // what does not work; empty when all does
   };

   // Begins to read. `history` writes to this session from now on. All must outlive it.
   DatabaseSession( Valen::Linux::EventLoop & loop, Options const & options,
                    HistoryWriter & history, Events events );
   ~DatabaseSession();
   DatabaseSession( DatabaseSession const & ) = delete;
   DatabaseSession & operator=( DatabaseSession const & ) = delete;

   // Begins to write: the status of all interfaces is in the outbox.
   void startWriting() { writer_.start(); }

   Database::Outbox & outbox() noexcept { return outbox_; }
   Database::Leases & leases() noexcept { return leases_; }
   void historyProblem( std::string const & why ) { problemIs( Part::history, why ); }

   bool connected() const noexcept { return writer_.up() && mirror_.up(); }
   U64 reconnects() const noexcept;
   std::size_t entities() const noexcept { return mirror_.entities(); }

 private:
   // In the order in which their problems are told.
   enum class Part : U8 { writer, mirror, outbox, history, alive };
   static constexpr std::size_t parts = 5;

   void writerUp();
   void writerLost( std::string const & why );
   void writerReady();
   // The server was, perhaps, of which it sends no notice.
   void emptied();
   // All that the server should have: what it has is unknown.
   void writeAgain();
   void problemIs( Part part, std::string const & why );

   Events const events_;
   HistoryWriter & history_;
   std::array< std::string, parts > problems_;
   std::string problem_; // as last told
   Database::Connection writer_;
   Database::Outbox outbox_;
   Database::Leases leases_;
   Alive alive_;
   Database::Mirror mirror_;
};

} // namespace Valend
