#include "varlink/Call.h"

namespace Varlink {

void Call::reply( Json parameters, bool continues ) {
   Json message{ { "parameters", std::move( parameters ) } };
   if ( continues ) {
      message[ "continues" ] = true;
   }
   send( message, !continues );
}

void Call::error( std::string const & name, Json parameters ) {
   send( { { "error", name }, { "parameters", std::move( parameters ) } }, true );
}

std::size_t Call::waiting() const noexcept {
   auto const replies = replies_.lock();
   return replies ? replies->waiting() : 0;
}

void Call::neededIs( bool needed ) noexcept {
   if ( auto const replies = replies_.lock() ) {
      replies->neededIs( needed );
   }
}

void Call::send( Json const & message, bool last ) {
   auto const replies = replies_.lock();
   if ( done_ || !replies ) {
      return;
   }
   done_ = last;
   replies->send( message, last );
}

} // namespace Varlink
