// The methods that answer parts of the state store: Show once, Watch after each change.
#pragma once

#include "valend/api/PathReaders.h"

#include <map>

namespace Valend {

class StoreMethods final : public MethodGroup {
 public:
   // How long what was read stays prepared for the next to read it.
   static constexpr std::chrono::seconds keptFor{ 1 };

   // `parts` must outlive this.
   explicit StoreMethods( Parts const & parts );

   std::vector< Method > methods() override;
   void clientGone( U64 client ) override;

 private:
   void show( Call const & call, std::string const & path );
   void watch( Call const & call, std::string const & path );
   void requirePath( std::string const & path ) const;
   PathReaders & readers( std::string const & path );
   void dropUnused();

   Parts const & parts_;
   StoreTexts texts_;
   std::map< std::string, PathReaders > readers_; // by path
   Gantry::Timer unused_;
};

} // namespace Valend
