// A sign of life in the database: the hash "alive", which expires unless it is renewed, and this daemon's prefix in the set
// of all. If it is missing on a connection that is up, the server may have been emptied, of which it does not tell.
#pragma once

#include "database/Connection.h"
#include "database/Fields.h"

#include <functional>
#include <string>

namespace Valend {

class Alive {
 public:
   static constexpr std::chrono::milliseconds period{ 500 };
   static constexpr char const * expiresMs = "5000";

   // Why the server does not take it; empty when it does again.
   using Problem = std::function< void( std::string const & why ) >;

   // `connection` must outlive this. Its owner calls up() and lost() at its events.
   //   fields    of the hash, as they are now
   //   missing   the sign of life was, and is written again: what else the server has is unknown. Also called when the
   //             server was emptied between a look and the writing, or while the connection was lost
   Alive( Quill::Ptr< Gantry::TaskScheduler > scheduler, Database::Connection & connection,
          std::string const & prefix, std::function< Database::Fields() > fields,
          std::function< void() > missing, Problem problem );

   void up();
   void lost();

 private:
   void addHost();
   void renew();
   void renewed( bool exists );
   void write( Database::Fields const & fields );
   void outcome( std::string const & error );

   Database::Connection & connection_;
   std::string const prefix_;
   std::string const key_;
   std::function< Database::Fields() > const fields_;
   std::function< void() > const missing_;
   Problem const problem_;
   std::string why_;          // as last reported
   Database::Fields written_; // that the server has, unless they have expired
   bool wasWritten_ =
      false; // to a server that has it since, unless that was emptied or it has expired
   Gantry::Timer period_;
};

} // namespace Valend
