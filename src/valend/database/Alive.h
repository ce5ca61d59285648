// A sign of life in the database: the hash "alive", which expires unless it is renewed, and this daemon's prefix in the set
// of all.
#pragma once

#include "database/Connection.h"
#include "database/Fields.h"

#include <functional>
#include <string>

namespace Valend {

class Alive {
 public:
   static constexpr std::chrono::milliseconds period{ 2'000 };
   static constexpr char const * expiresMs = "5000";

   // Why the server does not take it; empty when it does again.
   using Problem = std::function< void( std::string const & why ) >;

   // `connection` must outlive this. Its owner calls up() and lost() at its events.
   //   fields   of the hash, as they are now
   Alive( Quill::Ptr< Gantry::TaskScheduler > scheduler, Database::Connection & connection,
          std::string const & prefix, std::function< Database::Fields() > fields, Problem problem );

   void up();
   void lost();

 private:
   void renew();
   void write( Database::Fields const & fields );
   void outcome( std::string const & error );

   Database::Connection & connection_;
   std::string const prefix_;
   std::string const key_;
   std::function< Database::Fields() > const fields_;
   Problem const problem_;
   std::string why_;          // as last reported
   Database::Fields written_; // that the server has, unless they have expired
   Gantry::Timer period_;
};

} // namespace Valend
