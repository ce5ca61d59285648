// Delivery: which watchers are notified when one disturbs it. Each disruption is tried by each of
// one to five watchers upon each of them, at once and from within a nested notification.
#include "platform/quill/Entity.h"

#include "tests/platform/quill/EntityModel.h"
#include "tests/support/FaultRecorder.h"
#include "tests/support/LeakCheck.h"

#include <functional>
#include <memory>
#include <ostream>
#include <stdexcept>

namespace {

using Quill::make;
using Quill::Ptr;
using Valen::Test::FaultRecorder;
using Valen::Test::Shelf;

// Watchers of one shelf, named a, b, c...; each records its name and the width, and the actor
// then acts, once.
class Bench {
 public:
   class Watcher final : public Shelf::NotifieeConst {
    public:
      Watcher( Bench & bench, char name ) : bench_( bench ), name_( name ) {
         notifierIs( Ptr< Shelf const >( bench.shelf ) );
      }
      void onAttribute( Quill::AttrId, void const * ) override {
         bench_.log += name_ + std::to_string( notifier()->width() ) + ' ';
         if ( auto const act = std::exchange( onNext, nullptr ) ) {
            act(); // may destroy this watcher
         }
      }
      std::function< void() > onNext;

    private:
      Bench & bench_;
      char const name_;
   };

   explicit Bench( std::size_t count ) {
      for ( std::size_t i = 0; i < count; ++i ) {
         add();
      }
   }

   void add() {
      watchers.push_back(
         std::make_unique< Watcher >( *this, static_cast< char >( 'a' + watchers.size() ) ) );
   }
   void watch( std::size_t target ) {
      watchers[ target ]->notifierIs( Ptr< Shelf const >( shelf ) );
   }

   // Writes the width and returns the notified watchers, as "a1 b1 c1 ".
   std::string write( U16 width ) {
      log.clear();
      auto const handle = shelf;
      handle->widthIs( width );
      return log;
   }

   Ptr< Shelf > shelf = make< Shelf >();
   Ptr< Shelf > other = make< Shelf >();
   std::string log;
   std::vector< std::unique_ptr< Watcher > > watchers;
};

enum class Now { told, notTold, noFurther };
enum class Next { inPlace, last, absent, none, withNewcomer };

// What a watcher does to another (or itself) in the middle of a notification; whether the target,
// if its turn has not come, is still notified, and which ones are notified next time.
struct Disruption {
   char const * name;
   std::function< void( Bench &, std::size_t target ) > act;
   Now now;
   Next next;
   bool faults = false;
};

void PrintTo( Disruption const & disruption, std::ostream * stream ) {
   *stream << disruption.name;
}

Disruption const disruptions[] = {
   { "Nothing", []( Bench &, std::size_t ) {}, Now::told, Next::inPlace },
   { "Unregisters", []( Bench & b, std::size_t t ) { b.watchers[ t ]->notifierIs( nullptr ); },
     Now::notTold, Next::absent },
   { "Destroys", []( Bench & b, std::size_t t ) { b.watchers[ t ].reset(); }, Now::notTold,
     Next::absent },
   { "RepointsToAnother",
     []( Bench & b, std::size_t t ) {
        b.watchers[ t ]->notifierIs( Ptr< Shelf const >( b.other ) );
     },
     Now::notTold, Next::absent },
   { "RepointsToAnotherAndBack",
     []( Bench & b, std::size_t t ) {
        b.watchers[ t ]->notifierIs( Ptr< Shelf const >( b.other ) );
        b.watch( t );
     },
     Now::notTold, Next::last },
   { "RegistersAnew", []( Bench & b, std::size_t t ) { b.watch( t ); }, Now::notTold, Next::last },
   { "SwitchesOff",
     []( Bench & b, std::size_t t ) { b.watchers[ t ]->hasNotificationActiveIs( false ); },
     Now::notTold, Next::absent },
   { "SwitchesOffAndOn",
     []( Bench & b, std::size_t t ) {
        b.watchers[ t ]->hasNotificationActiveIs( false );
        b.watchers[ t ]->hasNotificationActiveIs( true );
     },
     Now::told, Next::inPlace },
   { "MakesAZombie",
     []( Bench & b, std::size_t t ) { b.watchers[ t ]->quillDoZombieReactors( true ); },
     Now::notTold, Next::absent },
   { "SwitchesAZombieOn",
     []( Bench & b, std::size_t t ) {
        b.watchers[ t ]->quillDoZombieReactors( true );
        b.watchers[ t ]->hasNotificationActiveIs( true );
     },
     Now::notTold, Next::absent },
   { "AddsANewcomer", []( Bench & b, std::size_t ) { b.add(); }, Now::told, Next::withNewcomer },
   { "AddsANewcomerAndDestroys",
     []( Bench & b, std::size_t t ) {
        b.add();
        b.watchers.back().reset();
        b.watchers[ t ].reset();
     },
     Now::notTold, Next::absent },
   { "DestroysAll", []( Bench & b, std::size_t ) { b.watchers.clear(); }, Now::noFurther,
     Next::none },
   { "DestroysAllAndTheShelf",
     []( Bench & b, std::size_t ) {
        b.shelf = make< Shelf >();
        b.watchers.clear();
     },
     Now::noFurther, Next::none },
   { "LetsTheShelfGo",
     []( Bench & b, std::size_t ) {
        b.shelf = make< Shelf >(); // the watchers keep the old one
     },
     Now::told, Next::none },
   { "Throws", []( Bench &, std::size_t ) { throw std::runtime_error( "disrupted" ); }, Now::told,
     Next::inPlace, true },
   { "ThrowsAnything", []( Bench &, std::size_t ) { throw 1; }, Now::told, Next::inPlace, true },
   { "DestroysAndThrows",
     []( Bench & b, std::size_t t ) {
        b.watchers[ t ].reset();
        throw std::runtime_error( "disrupted" );
     },
     Now::notTold, Next::absent, true },
};

std::string told( std::string const & names, int width ) {
   std::string text;
   for ( char const name : names ) {
      text += name + std::to_string( width ) + ' ';
   }
   return text;
}

class DisruptedDelivery : public ::testing::TestWithParam< Disruption >,
                          private Valen::Test::LeakCheck {
 protected:
   // All watchers, those notified up to the actor, and those notified after it.
   struct Expected {
      Expected( std::size_t count, std::size_t actor, std::size_t target )
          : all( std::string( "abcdef" ).substr( 0, count ) ), early( all.substr( 0, actor + 1 ) ),
            late( all.substr( actor + 1 ) ), next( all ) {
         char const name = all[ target ];
         if ( GetParam().now == Now::notTold ) {
            std::erase( late, name );
         } else if ( GetParam().now == Now::noFurther ) {
            late.clear();
         }
         switch ( GetParam().next ) {
         case Next::inPlace:
            break;
         case Next::last:
            std::erase( next, name );
            next += name;
            break;
         case Next::absent:
            std::erase( next, name );
            break;
         case Next::none:
            next.clear();
            break;
         case Next::withNewcomer:
            next += static_cast< char >( 'a' + count );
            break;
         }
      }
      std::string all, early, late, next;
   };

   template < class Try > void atEveryPosition( Try const & attempt ) {
      for ( std::size_t count = 1; count <= 5; ++count ) {
         for ( std::size_t actor = 0; actor < count; ++actor ) {
            for ( std::size_t target = 0; target < count; ++target ) {
               SCOPED_TRACE( std::to_string( count ) + " watchers, " + std::to_string( actor ) +
                             " upon " + std::to_string( target ) );
               Bench bench( count );
               auto const faultsBefore = recorder_.faults().size();
               attempt( bench, Expected( count, actor, target ), actor, target );
               EXPECT_EQ( recorder_.faults().size() - faultsBefore, GetParam().faults ? 1 : 0 );
            }
         }
      }
   }

   FaultRecorder recorder_;
};

TEST_P( DisruptedDelivery, NotifiesExactlyTheRemainingWatchers ) {
   atEveryPosition(
      []( Bench & bench, Expected const & expected, std::size_t actor, std::size_t target ) {
         bench.watchers[ actor ]->onNext = [ & ] { GetParam().act( bench, target ); };
         EXPECT_EQ( bench.write( 1 ), told( expected.early + expected.late, 1 ) );
         EXPECT_EQ( bench.write( 2 ), told( expected.next, 2 ) );
      } );
}

TEST_P( DisruptedDelivery, NotifiesExactlyTheRemainingWatchersOfANestedDisruption ) {
   atEveryPosition(
      []( Bench & bench, Expected const & expected, std::size_t actor, std::size_t target ) {
         bench.watchers[ actor ]->onNext = [ & ] {
            bench.watchers[ actor ]->onNext = [ & ] { GetParam().act( bench, target ); };
            bench.shelf->widthIs( 2 );
         };
         // Depth first: all watchers are notified of the nested change before the first one
         // continues, and then all see the current width.
         EXPECT_EQ( bench.write( 1 ), told( expected.early, 1 ) + told( expected.early, 2 ) +
                                         told( expected.late, 2 ) + told( expected.late, 2 ) );
         EXPECT_EQ( bench.write( 3 ), told( expected.next, 3 ) );
      } );
}

TEST_P( DisruptedDelivery, DisruptionAfterANestedWriteIsTheSame ) {
   atEveryPosition( []( Bench & bench, Expected const & expected, std::size_t actor,
                        std::size_t target ) {
      bench.watchers[ actor ]->onNext = [ & ] {
         bench.shelf->widthIs( 2 );
         GetParam().act( bench, target );
      };
      EXPECT_EQ( bench.write( 1 ),
                 told( expected.early, 1 ) + told( expected.all, 2 ) + told( expected.late, 2 ) );
      EXPECT_EQ( bench.write( 3 ), told( expected.next, 3 ) );
   } );
}

INSTANTIATE_TEST_SUITE_P( Each, DisruptedDelivery, ::testing::ValuesIn( disruptions ),
                          []( auto const & each ) { return std::string( each.param.name ); } );

class DeliveryTest : public ::testing::Test, private Valen::Test::LeakCheck {};

TEST_F( DeliveryTest, WatchersAreNotifiedInTheOrderInWhichTheyWereAdded ) {
   Bench bench( 4 );
   EXPECT_EQ( bench.write( 1 ), "a1 b1 c1 d1 " );
   EXPECT_EQ( bench.write( 1 ), "" ) << "nothing changed";
}

TEST_F( DeliveryTest, NewWatcherIsNotifiedOfAChangeMadeAfterItWasAdded ) {
   for ( std::size_t count = 1; count <= 3; ++count ) {
      Bench bench( count );
      std::string const all = std::string( "abc" ).substr( 0, count );
      bench.watchers[ 0 ]->onNext = [ & ] {
         bench.add();
         bench.shelf->widthIs( 2 );
      };
      char const newcomer = static_cast< char >( 'a' + count );
      EXPECT_EQ( bench.write( 1 ), "a1 " + told( all + newcomer, 2 ) + told( all.substr( 1 ), 2 ) );
   }
}

TEST_F( DeliveryTest, WatcherOfAnEntityThatOnlyItHoldsMayLetItGo ) {
   Bench bench( 1 );
   auto const before = Shelf::quillAllocation.live;
   auto & watcher = *bench.watchers[ 0 ];
   watcher.onNext = [ & ] {
      bench.shelf = nullptr;
      watcher.notifierIs( nullptr );
   };
   EXPECT_EQ( bench.write( 1 ), "a1 " );
   EXPECT_EQ( Shelf::quillAllocation.live, before - 1 );
}

TEST_F( DeliveryTest, EachWatcherMayWriteOnce ) {
   Bench bench( 3 );
   for ( U16 i = 0; i < 3; ++i ) {
      bench.watchers[ i ]->onNext = [ &bench, i ] {
         bench.shelf->widthIs( static_cast< U16 >( i + 2 ) );
      };
   }
   EXPECT_EQ( bench.write( 1 ), "a1 a2 b2 a3 b3 c3 a4 b4 c4 c4 b4 c4 " )
      << "each write notifies all watchers before the outer one continues";
}

TEST_F( DeliveryTest, FaultOfABareNotifieeIsReportedWithItsText ) {
   FaultRecorder recorder;
   auto const faultsBefore = Quill::faults();
   Bench bench( 2 );
   bench.watchers[ 0 ]->onNext = [] { throw std::runtime_error( "broken" ); };
   bench.watchers[ 1 ]->onNext = [] { throw 'x'; };
   EXPECT_EQ( bench.write( 1 ), "a1 b1 " );
   EXPECT_EQ( recorder.messages(),
              ( std::vector< std::string >{ "fault in notifiee: broken",
                                            "fault in notifiee: exception of an unknown type" } ) );
   EXPECT_EQ( Quill::faults(), faultsBefore + 2 );
}

} // namespace
