#include "valend/base/Conditions.h"

#include "valend/base/MessageIds.h"

#include <algorithm>
#include <utility>

namespace Valend {

Conditions::Conditions( LogLine logLine ) : logLine_( std::move( logLine ) ) {}

std::vector< Conditions::Raised > Conditions::raised() const {
   std::vector< Raised > list;
   for ( auto const * condition : all_ ) {
      if ( condition->raised() ) {
         list.push_back( { condition->name_, condition->text_, condition->since_ } );
      }
   }
   std::sort( list.begin(), list.end(),
              []( auto const & a, auto const & b ) { return a.name < b.name; } );
   return list;
}

bool Conditions::isRaised( std::string const & name ) const {
   return std::any_of( all_.begin(), all_.end(), [ & ]( auto const * condition ) {
      return condition->raised() && condition->name_ == name;
   } );
}

void Conditions::logCondition( LogLevel level, std::string const & text ) {
   bool const raised = level == LogLevel::error;
   log( level, text,
        { { "MESSAGE_ID", raised ? MessageIds::conditionRaised : MessageIds::conditionCleared } } );
}

Condition::Condition( Conditions & conditions, std::string name )
    : conditions_( conditions ), name_( std::move( name ) ) {
   conditions_.all_.push_back( this );
}

Condition::~Condition() {
   std::erase( conditions_.all_, this );
}

void Condition::raise( std::string text ) {
   if ( text == text_ ) {
      return;
   }
   if ( text_.empty() ) {
      since_ = std::chrono::system_clock::now();
   }
   text_ = std::move( text );
   conditions_.logLine_( LogLevel::error, name_ + ": " + text_ );
}

void Condition::clear() {
   if ( !text_.empty() ) {
      text_.clear();
      conditions_.logLine_( LogLevel::notice, name_ + ": recovered" );
   }
}

void Condition::update( std::string text ) {
   if ( text.empty() ) {
      clear();
   } else {
      raise( std::move( text ) );
   }
}

} // namespace Valend
