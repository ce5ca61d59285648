// The cost of the framework compared to plain C++: notifying watchers, and keyed members.
#include "Paired.h"
#include "platform/corvid/IntfId.h"
#include "platform/quill/Attributes.h"
#include "platform/quill/EntityTables.h"

#include <memory>
#include <numeric>
#include <random>
#include <string>
#include <unordered_map>

namespace {

using namespace Valen::Bench;

class Port final : public Quill::Entity {
   QUILL_ENTITY( Port )
 public:
   explicit Port( Corvid::IntfId intfId ) : intfId_( std::move( intfId ) ) {}
   QUILL_PARAMETER( Corvid::IntfId, intfId )
   QUILL_SINGLE( U32, speed )

 public:
   void changed() const { notify( speedAttr::id ); }
};

class AllPort final : public Quill::Entity {
   QUILL_ENTITY( AllPort )
   QUILL_MEMBERS( Port, port, intfId )
};

QUILL_ENTITY_TABLES( Port )
QUILL_ENTITY_TABLES( AllPort )

// Counts its notifications.
template < class T > class Counter final : public Quill::NotifieeOf< T > {
 public:
   explicit Counter( Quill::Ptr< T > const & entity ) { this->notifierIs( entity ); }
   [[gnu::noinline]] void onAttribute( Quill::AttrId, void const * ) override { ++told; }
   U64 told = 0;
};

// --- Notification --------------------------------------------------------------------------------

constexpr U32 rounds = 20'000;
constexpr U32 crowd = 101;

using Counters = std::vector< std::unique_ptr< Counter< Port > > >;

Counters countersOn( Quill::Ptr< Port > const & port, U32 count ) {
   Counters counters;
   for ( U32 i = 0; i < count; ++i ) {
      counters.push_back( std::make_unique< Counter< Port > >( port ) );
   }
   return counters;
}

// Only the calls, without support for watchers that are added and removed meanwhile.
void callAll( std::vector< Quill::NotifieeBase * > const & notifiees, U32 times ) {
   for ( U32 i = 0; i < times; ++i ) {
      for ( auto * const notifiee : notifiees ) {
         notifiee->onAttribute( Port::speedAttr::id, nullptr );
      }
      benchmark::ClobberMemory();
   }
}

std::vector< Quill::NotifieeBase * > bareOf( Counters const & counters, std::size_t count ) {
   std::vector< Quill::NotifieeBase * > bare;
   for ( auto const & counter : counters ) {
      if ( bare.size() < count ) {
         bare.push_back( counter.get() );
      }
   }
   return bare;
}

void tell( Port const & port, U32 times ) {
   for ( U32 i = 0; i < times; ++i ) {
      port.changed();
      benchmark::ClobberMemory();
   }
}

void oneWatcher( benchmark::State & state ) {
   auto const port = Quill::make< Port >( "Ethernet1" );
   auto const counters = countersOn( port, 1 );
   auto const bare = bareOf( counters, 1 );
   Paired paired( rounds, rounds );
   for ( auto _ : state ) {
      paired.turn(
         state, [ & ] { tell( *port, rounds ); }, [ & ] { callAll( bare, rounds ); } );
   }
   paired.report( state, 2.0 );
}
BENCHMARK( oneWatcher )->Name( "telling one watcher, by a virtual call" )->UseManualTime();

void furtherWatcher( benchmark::State & state ) {
   auto const alone = Quill::make< Port >( "Ethernet1" );
   auto const crowded = Quill::make< Port >( "Ethernet2" );
   auto const single = countersOn( alone, 1 );
   auto const counters = countersOn( crowded, crowd );
   auto const bare = bareOf( counters, crowd );
   constexpr U32 times = rounds / crowd;
   Paired paired( times * ( crowd - 1 ), times * crowd );
   for ( auto _ : state ) {
      auto const all = timeOf( [ & ] { tell( *crowded, times ); } );
      auto const calls = timeOf( [ & ] { callAll( bare, times ); } );
      auto const first = timeOf( [ & ] { tell( *alone, times ); } );
      paired.turnIs( state, all - first, calls );
   }
   paired.report( state, 1.15 );
}
BENCHMARK( furtherWatcher )
   ->Name( "telling each further watcher, by a virtual call" )
   ->UseManualTime();

// --- Keyed members -------------------------------------------------------------------------------

constexpr U32 batch = 1'000;

// The usual alternative: heap objects in a standard map, with an explicit call of the listener.
struct Object {
   explicit Object( std::string n ) : name( std::move( n ) ) {}
   std::string name;
   U32 speed = 0;
};

class Listener {
 public:
   virtual ~Listener() = default;
   virtual void told( std::string const & name ) = 0;
};

class CountingListener final : public Listener {
 public:
   [[gnu::noinline]] void told( std::string const & ) override { ++count; }
   U64 count = 0;
};

// The same members in both forms.
class Tables {
 public:
   explicit Tables( U32 count ) : counter( all ) {
      std::mt19937 random( 1 );
      for ( U32 i = 0; i < count + batch; ++i ) {
         names_.push_back( "Ethernet" + std::to_string( i / 48 + 1 ) + "/" +
                           std::to_string( i % 48 + 1 ) );
      }
      std::shuffle( names_.begin(), names_.end(), random );
      for ( auto const & name : names_ ) {
         keys_.emplace_back( std::string_view( name ) );
      }
      std::vector< U32 > order( count );
      std::iota( order.begin(), order.end(), 0u );
      std::shuffle( order.begin(), order.end(), random );
      for ( U32 const i : order ) {
         all->portIs( keys_[ i ] );
         map.emplace( names_[ i ], std::make_unique< Object >( names_[ i ] ) );
      }
   }

   // Names and keys that are not in the tables, and those that are, in random order.
   std::span< std::string const > freeNames() const { return std::span( names_ ).last( batch ); }
   std::span< Corvid::IntfId const > freeKeys() const { return std::span( keys_ ).last( batch ); }
   std::span< std::string const > heldNames() const { return std::span( names_ ).first( size() ); }
   std::span< Corvid::IntfId const > heldKeys() const { return std::span( keys_ ).first( size() ); }
   std::size_t size() const { return names_.size() - batch; }

   Quill::Ptr< AllPort > const all = Quill::make< AllPort >();
   Counter< AllPort > counter;
   std::unordered_map< std::string, std::unique_ptr< Object > > map;
   std::unique_ptr< Listener > const listener = std::make_unique< CountingListener >();

 private:
   std::vector< std::string > names_;
   std::vector< Corvid::IntfId > keys_;
};

void insertAndDelete( benchmark::State & state ) {
   Tables tables( static_cast< U32 >( state.range( 0 ) ) );
   auto const members = [ & ] {
      for ( auto const & key : tables.freeKeys() ) {
         tables.all->portIs( key );
      }
      for ( auto const & key : tables.freeKeys() ) {
         tables.all->portDel( key );
      }
   };
   auto const mapped = [ & ] {
      for ( auto const & name : tables.freeNames() ) {
         tables.map.emplace( name, std::make_unique< Object >( name ) );
         tables.listener->told( name );
      }
      for ( auto const & name : tables.freeNames() ) {
         tables.map.erase( name );
         tables.listener->told( name );
      }
   };
   Paired paired( batch, batch );
   for ( auto _ : state ) {
      paired.turn( state, members, mapped );
   }
   paired.report( state, 0.5 );
}
BENCHMARK( insertAndDelete )
   ->Name( "insert, tell and delete by key, by std::unordered_map" )
   ->Arg( 10'000 )
   ->Arg( 100'000 )
   ->UseManualTime();

void lookUp( benchmark::State & state ) {
   Tables tables( static_cast< U32 >( state.range( 0 ) ) );
   auto const members = [ & ] {
      for ( auto const & key : tables.heldKeys() ) {
         benchmark::DoNotOptimize( tables.all->port( key ).get() );
      }
   };
   auto const mapped = [ & ] {
      for ( auto const & name : tables.heldNames() ) {
         benchmark::DoNotOptimize( tables.map.find( name )->second.get() );
      }
   };
   auto const count = static_cast< U32 >( tables.size() );
   Paired paired( count, count );
   for ( auto _ : state ) {
      paired.turn( state, members, mapped );
   }
   paired.report( state, 0.3 );
}
BENCHMARK( lookUp )
   ->Name( "look-up by a held key, by std::unordered_map" )
   ->Arg( 10'000 )
   ->Arg( 100'000 )
   ->UseManualTime();

} // namespace
