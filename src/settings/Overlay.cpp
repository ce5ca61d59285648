#include "settings/Overlay.h"

#include "settings/Contest.h"

#include <functional>
#include <set>

namespace Settings {

namespace {

using Kind = Entity::Kind;
using Rank = Contest::Rank;

constexpr char const * delayKey = "config:delay";
constexpr char const * vrfKey = "config:vrf:";
constexpr char const * interfaceKey = "config:interface:";

// What of which there is one. No VRF's name has a zero byte.
std::string deviceOf( InterfaceConfig const & interface ) {
   return interface.vrf + '\0' + interface.device;
}

} // namespace

// --- The values ----------------------------------------------------------------------------------

void Overlay::change( EntityChanges changes ) {
   for ( auto & [ key, fields ] : changes ) {
      if ( fields ) {
         auto entity = entityOf( key, *fields );
         // What is wrong may be large, and is not looked at again.
         auto kept = entity.why.empty() ? std::move( *fields ) : Fields();
         present_.insert_or_assign( key, std::make_shared< Value const >(
                                            Value{ std::move( kept ), std::move( entity ) } ) );
      } else {
         present_.erase( key );
      }
   }
}

void Overlay::replace( EntityChanges all ) {
   present_.clear();
   change( std::move( all ) );
}

void Overlay::resume( Entities taken ) {
   EntityChanges all;
   for ( auto & [ key, fields ] : taken ) {
      all.emplace( key, std::move( fields ) );
   }
   replace( std::move( all ) );
}

Entities Overlay::taken() const {
   Entities result;
   for ( auto const & [ key, isPresent ] : taken_ ) {
      result.emplace( key, ( isPresent ? present_ : last_ ).at( key )->fields );
   }
   return result;
}

// --- Settling ------------------------------------------------------------------------------------

class Overlay::Settling {
 public:
   Settling( Overlay & overlay, Config const & files, Sources const & places )
       : overlay_( overlay ), files_( files ), result_{ files, places } {}

   Result run() {
      overlay_.rejected_.clear();
      overlay_.taken_.clear();
      rejectWrong();
      settleDelay();
      settleVrfs();
      settleInterfaces();
      rememberTaken();
      return std::move( result_ );
   }

 private:
   void reject( std::string const & key, std::string const & why ) {
      overlay_.rejected_.emplace( key, why );
   }

   void rejectWrong() {
      std::size_t count = 0;
      for ( auto const & [ key, value ] : overlay_.present_ ) {
         if ( !value->entity.why.empty() ) {
            reject( key, value->entity.why );
         } else if ( ++count > maxEntities ) {
            reject( key, "more than " + std::to_string( maxEntities ) +
                            " entities, which is the limit" );
         }
      }
   }

   // The present value, unless it was rejected; null without one.
   Entity const * present( std::string const & key ) const {
      auto const found = overlay_.present_.find( key );
      return found == overlay_.present_.end() || overlay_.rejected_.contains( key )
                ? nullptr
                : &found->second->entity;
   }
   Entity const * last( std::string const & key ) const {
      auto const found = overlay_.last_.find( key );
      return found == overlay_.last_.end() ? nullptr : &found->second->entity;
   }
   bool isGone( std::string const & key ) const { return !overlay_.present_.contains( key ); }

   void take( std::string const & key, Rank rank ) {
      overlay_.taken_.emplace( key, rank == Rank::present );
   }

   static Place placeOf( std::string const & key ) { return { key, 0, 0, true }; }

   void settleDelay() {
      auto const * const now = present( delayKey );
      auto const * const entity = now ? now : isGone( delayKey ) ? nullptr : last( delayKey );
      if ( entity ) {
         result_.config.shutdownDelayMs = entity->delayMs;
         result_.sources.settings[ "shutdown-delay-ms" ] = placeOf( delayKey );
         take( delayKey, now ? Rank::present : Rank::last );
      }
   }

   // Calls `each` with the key and the name of each present entity of the kind that begins with `head`.
   template < class Each > void eachPresent( std::string const & head, Each const & each ) const {
      auto const & present = overlay_.present_;
      for ( auto at = present.lower_bound( head );
            at != present.end() && at->first.starts_with( head ); ++at ) {
         each( at->first, at->first.substr( head.size() ) );
      }
   }

   void settleVrfs();
   void restoreVrfs( Contest const & contest );
   void settleInterfaces();
   bool vrfExists( std::string const & vrf ) const {
      return vrf == defaultVrf || result_.config.vrfs.contains( vrf );
   }
   std::vector< Contest::Claim > deviceClaims( std::string const & key, std::string const & name );
   void putVrf( std::string const & name, Entity const & entity, Rank rank );
   void putInterface( std::string const & name, Entity const & entity, Rank rank );
   void rememberTaken();

   Overlay & overlay_;
   Config const & files_;
   Result result_;
   std::map< std::string, Entity const * > restorable_; // VRFs that have gone, and may stay
};

void Overlay::Settling::putVrf( std::string const & name, Entity const & entity, Rank rank ) {
   result_.config.vrfs[ name ] = entity.netNs;
   result_.sources.vrfs[ name ] = placeOf( vrfKey + name );
   take( vrfKey + name, rank );
}

void Overlay::Settling::settleVrfs() {
   Contest contest;
   std::vector< std::string > names;
   eachPresent( vrfKey, [ & ]( auto const & key, auto const & name ) {
      names.push_back( name );
      std::vector< Contest::Claim > claims;
      if ( auto const * const entity = present( key ) ) {
         claims.push_back( { Rank::present, entity->netNs } );
      }
      if ( auto const * const entity = last( key ) ) {
         claims.push_back( { Rank::last, entity->netNs } );
      }
      if ( auto const file = files_.vrfs.find( name ); file != files_.vrfs.end() ) {
         claims.push_back( { Rank::files, file->second } );
      }
      contest.enter( name, std::move( claims ) );
   } );
   for ( auto const & [ name, netNs ] : files_.vrfs ) {
      if ( isGone( vrfKey + name ) ) {
         contest.enter( name, { { Rank::files, netNs } } );
      }
   }
   for ( auto const & name : names ) {
      auto const key = vrfKey + name;
      auto const * const won = contest.won( name );
      auto const rank = won ? won->rank : Rank::files;
      if ( won && rank != Rank::files ) {
         putVrf( name, rank == Rank::present ? *present( key ) : *last( key ), rank );
      }
   }
   for ( auto const & name : names ) { // when it is known who has what
      auto const key = vrfKey + name;
      auto const * const entity = present( key );
      if ( entity && !( overlay_.taken_.contains( key ) && overlay_.taken_.at( key ) ) ) {
         auto const holder = contest.holder( entity->netNs );
         reject( key,
                 namespaceTakenBy( entity->netNs, holder, result_.sources.vrfs.at( holder ) ) );
      }
   }
   restoreVrfs( contest );
}

// Those of which the namespace is free.
void Overlay::Settling::restoreVrfs( Contest const & contest ) {
   std::set< std::string > used;
   for ( auto const & [ key, value ] : overlay_.last_ ) {
      auto const & entity = value->entity;
      if ( entity.kind == Kind::vrf && isGone( key ) && !vrfExists( entity.name ) &&
           contest.holder( entity.netNs ).empty() && used.insert( entity.netNs ).second ) {
         restorable_.emplace( entity.name, &entity );
      }
   }
}

void Overlay::Settling::putInterface( std::string const & name, Entity const & entity, Rank rank ) {
   result_.config.interfaces[ name ] = entity.interface;
   result_.sources.interfaces[ name ] = placeOf( interfaceKey + name );
   take( interfaceKey + name, rank );
   auto const & vrf = entity.interface.vrf;
   if ( !vrfExists( vrf ) ) {
      putVrf( vrf, *restorable_.at( vrf ), Rank::last );
   }
}

std::vector< Contest::Claim > Overlay::Settling::deviceClaims( std::string const & key,
                                                               std::string const & name ) {
   std::vector< Contest::Claim > claims;
   if ( auto const * const entity = present( key ) ) {
      if ( vrfExists( entity->interface.vrf ) ) {
         claims.push_back( { Rank::present, deviceOf( entity->interface ) } );
      } else {
         reject( key, unknownVrfOf( entity->interface ) );
      }
   }
   if ( auto const * const entity = last( key ) ) {
      auto const & vrf = entity->interface.vrf;
      if ( vrfExists( vrf ) || restorable_.contains( vrf ) ) {
         claims.push_back( { Rank::last, deviceOf( entity->interface ) } );
      }
   }
   if ( auto const file = files_.interfaces.find( name ); file != files_.interfaces.end() ) {
      claims.push_back( { Rank::files, deviceOf( file->second ) } );
   }
   return claims;
}

void Overlay::Settling::settleInterfaces() {
   Contest contest;
   std::vector< std::string > names;
   eachPresent( interfaceKey, [ & ]( auto const & key, auto const & name ) {
      names.push_back( name );
      contest.enter( name, deviceClaims( key, name ) );
   } );
   for ( auto const & [ name, interface ] : files_.interfaces ) {
      if ( isGone( interfaceKey + name ) ) {
         contest.enter( name, { { Rank::files, deviceOf( interface ) } } );
      }
   }
   for ( auto const & name : names ) {
      auto const key = interfaceKey + name;
      auto const * const won = contest.won( name );
      if ( won && won->rank != Rank::files ) {
         putInterface( name, won->rank == Rank::present ? *present( key ) : *last( key ),
                       won->rank );
      }
   }
   for ( auto const & name : names ) {
      auto const key = interfaceKey + name;
      auto const * const entity = present( key );
      if ( entity && !( overlay_.taken_.contains( key ) && overlay_.taken_.at( key ) ) ) {
         auto const holder = contest.holder( deviceOf( entity->interface ) );
         reject( key, deviceTakenBy( entity->interface, holder,
                                     result_.sources.interfaces.at( holder ) ) );
      }
   }
}

// A last value that has lost what it claims is remembered for as long as its entity is there.
void Overlay::Settling::rememberTaken() {
   auto & last = overlay_.last_;
   for ( auto const & [ key, isPresent ] : overlay_.taken_ ) {
      if ( isPresent ) {
         last[ key ] = overlay_.present_.at( key );
      }
   }
   std::erase_if( last, [ & ]( auto const & value ) {
      return isGone( value.first ) && !overlay_.taken_.contains( value.first );
   } );
}

Overlay::Result Overlay::settle( Config const & files, Sources const & places ) {
   return Settling( *this, files, places ).run();
}

} // namespace Settings
