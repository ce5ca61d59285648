#include "valend/configuration/Plan.h"

namespace Valend {

Plan::Plan( Settings::Config config )
    : Plan( std::make_shared< Settings::Config const >( std::move( config ) ) ) {}

Plan::Plan( std::shared_ptr< Settings::Config const > config ) : config_( std::move( config ) ) {
   for ( auto const & [ agent, messages ] : config_->agents ) {
      for ( auto const & [ interface, frames ] : messages ) {
         frames_[ interface ].emplace_back( agent, frames );
      }
   }
}

Plan::Frames const & Plan::framesFor( std::string const & interface ) const {
   static Frames const none;
   auto const found = frames_.find( interface );
   return found == frames_.end() ? none : found->second;
}

} // namespace Valend
