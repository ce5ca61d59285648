// Why written values are rejected: a hash for each in the outbox, "rejected:KEY", until that is over.
#pragma once

#include "database/Outbox.h"

#include <map>
#include <string>

namespace Valend {

class Rejections {
 public:
   // Where to; null for nowhere. All that are known are put in it.
   void outboxIs( Database::Outbox * outbox );

   // The value of the key, without its prefix, cannot be read. Empty: it can.
   void unreadableIs( std::string const & key, std::string const & why );
   // It can be read, and is not taken. Empty: it is taken, or gone.
   void rejectedIs( std::string const & key, std::string const & why );

   std::size_t count() const noexcept { return rejections_.size(); }

 private:
   struct Rejection {
      std::string unreadable;
      std::string rejected;
      std::string why = {};  // the one of these that is told
      std::string atMs = {}; // since when
   };

   void update( std::string const & key );
   void put( std::string const & key, Rejection const & rejection ) const;

   Database::Outbox * outbox_ = nullptr;
   std::map< std::string, Rejection > rejections_; // by key
};

} // namespace Valend
