#include "valend/database/Alive.h"

#include "database/Keys.h"
#include "database/Transaction.h"

namespace Valend {

Alive::Alive( Quill::Ptr< Gantry::TaskScheduler > scheduler, Database::Connection & connection,
              std::string const & prefix, std::function< Database::Fields() > fields,
              std::function< void() > missing, Problem problem )
    : connection_( connection ), prefix_( prefix ),
      key_( Database::withPrefix( prefix, Database::Names::alive ) ),
      fields_( std::move( fields ) ), missing_( std::move( missing ) ),
      problem_( std::move( problem ) ),
      period_( std::move( scheduler ), "database alive", [ this ] { renew(); } ) {}

void Alive::up() {
   written_.clear();
   addHost();
   renew();
}

void Alive::lost() {
   period_.stop();
   why_.clear();
}

void Alive::addHost() {
   connection_.command( { "SADD", Database::hostsKey, prefix_ },
                        [ this ]( Database::Reply const & reply ) {
                           if ( reply.failed() ) {
                              outcome( std::string( Database::hostsKey ) + ": " + reply.text );
                           }
                        } );
}

void Alive::renew() {
   period_.start( period );
   if ( !connection_.canTake() ) {
      return; // a slow server has other things to take first
   }
   connection_.command( { "PEXPIRE", key_, expiresMs }, [ this ]( Database::Reply const & reply ) {
      if ( reply.type == Database::Reply::Type::number ) {
         renewed( reply.number > 0 );
      } else if ( reply.failed() ) {
         outcome( key_ + ": " + reply.text );
      }
   } );
}

void Alive::renewed( bool exists ) {
   auto const fields = fields_();
   if ( !exists || fields != written_ ) {
      write( fields );
   } else {
      outcome( "" );
   }
}

void Alive::write( Database::Fields const & fields ) {
   Database::Command set{ "HSET", key_ };
   for ( auto const & [ name, value ] : fields ) {
      set.insert( set.end(), { name, value } );
   }
   Database::runTogether( connection_, { { "DEL", key_ }, set, { "PEXPIRE", key_, expiresMs } },
                          [ this, fields ]( std::string const & error,
                                            std::vector< Database::Reply > const & replies ) {
                             written_ = error.empty() ? fields : Database::Fields();
                             outcome( error.empty() ? error : key_ + ": " + error );
                             // A server that is emptied once more is noticed again: the sign of life is there now.
                             bool const deletedNone = error.empty() && replies.front().number == 0;
                             if ( error.empty() && std::exchange( wasWritten_, true ) &&
                                  deletedNone ) {
                                addHost();
                                missing_();
                             }
                          } );
}

void Alive::outcome( std::string const & error ) {
   if ( std::exchange( why_, error ) != error ) {
      problem_( error );
   }
}

} // namespace Valend
