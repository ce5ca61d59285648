#include "varlink/Call.h"

namespace Varlink {

void Call::reply( Json parameters ) {
   sendLast( { { "parameters", std::move( parameters ) } } );
}

void Call::replyContinues( Json parameters ) {
   if ( auto const to = replies(); to && wanted_ != Wanted::none ) {
      to->send( std::make_shared< std::string const >(
         encoded( { { "parameters", std::move( parameters ) }, { "continues", true } } ) ) );
   }
}

void Call::reply( Encoded answer ) {
   sendLast( std::move( answer ) );
}

void Call::replyContinues( Encoded answer ) {
   if ( auto const to = replies(); to && wanted_ != Wanted::none ) {
      to->send( std::move( answer ) );
   }
}

void Call::error( std::string const & name, Json parameters ) {
   sendLast( { { "error", name }, { "parameters", std::move( parameters ) } } );
}

std::size_t Call::waiting() const noexcept {
   auto const replies = replies_.lock();
   return replies ? replies->waiting() : 0;
}

bool Call::mayLast() const {
   auto const replies = replies_.lock();
   return !replies || replies->mayLast();
}

void Call::lasts() noexcept {
   if ( auto const replies = replies_.lock() ) {
      replies->lasts();
   }
}

void Call::neededIs( bool needed ) noexcept {
   if ( auto const replies = replies_.lock() ) {
      replies->neededIs( needed );
   }
}

// Where an answer can still go; null when it cannot.
std::shared_ptr< Replies > Call::replies() const {
   return done_ ? nullptr : replies_.lock();
}

void Call::sendLast( Json const & message ) {
   sendLast( std::make_shared< std::string const >( encoded( message ) ) );
}

void Call::sendLast( Encoded message ) {
   auto const to = replies();
   if ( !to ) {
      return;
   }
   done_ = true;
   if ( wanted_ != Wanted::none ) {
      to->send( std::move( message ) );
   }
   to->finished();
}

} // namespace Varlink
