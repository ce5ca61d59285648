// A reactor for the tests of the framework, which records its notifications and does what a test
// wants in its handlers.
#pragma once

#include "platform/quill/Watch.h"
#include "tests/platform/quill/EntityModel.h"
#include "tests/support/FaultRecorder.h"
#include "tests/support/LeakCheck.h"

#include <functional>
#include <string>

namespace Valen::Test {

// The events of all porters, in order: "a width 3", "b tag red", "-a" when it is destroyed.
struct Story {
   std::string text;
   // The notifications since the last call.
   std::string told() { return std::exchange( text, {} ); }
   void add( std::string const & event ) { text += ( text.empty() ? "" : ", " ) + event; }
};

// A reactor that watches a shelf and one more entity, and does what a test wants in its handlers.
class Porter final : public Quill::Reactor {
   QUILL_TRACKED( Porter )
 public:
   Porter( char name, Story & story, Quill::Ptr< Shelf > shelf, Quill::Ptr< Box > box )
       : name_( name ), story_( story ), shelf_( *this, std::move( shelf ) ),
         box_( *this, std::move( box ) ) {
      handleInitialized();
   }
   ~Porter() override {
      quillDoZombieReactors( true );
      story_.add( std::string( "-" ) + name_ );
   }

   char const * reactorName() const noexcept override { return "Porter"; }
   char name() const { return name_; }
   bool initialized() const { return initialized_; }

   void handleWidth() { act( "width " + std::to_string( shelf_.get()->width() ) ); }
   void handleTag( Quill::Name tag ) { act( "tag " + tag.stdString() ); }
   void handleMessage( U32 position ) { act( "message " + std::to_string( position ) ); }
   void handleNeighbor() { act( "neighbor" ); }
   void handleInitialized() {
      initialized_ = true;
      for ( auto const & tag : shelf_.get()->tag() ) {
         handleTag( tag );
      }
   }

   std::function< void() > onNext; // runs in the next handler, once

 private:
   void act( std::string const & event ) {
      story_.add( name_ + ( " " + event ) );
      if ( auto const action = std::exchange( onNext, nullptr ) ) {
         action();
      }
   }

   char const name_;
   Story & story_;
   bool initialized_ = false;
   Quill::Watch< Porter, Shelf, Quill::On< Shelf::widthAttr, &Porter::handleWidth >,
                 Quill::On< Shelf::tagAttr, &Porter::handleTag >,
                 Quill::On< Shelf::messageAttr, &Porter::handleMessage > >
      shelf_;
   Quill::Watch< Porter, Box, Quill::On< Box::neighborAttr, &Porter::handleNeighbor > > box_;

 public:
   auto & shelfWatch() { return shelf_; }
   auto & boxWatch() { return box_; }
};

// A shelf and a box, porters that watch them, and their owner.
class PorterTest : public ::testing::Test, private LeakCheck {
 protected:
   Porter & add( char name ) {
      auto const porter = Quill::make< Porter >( name, story_, shelf_, box_ );
      porters_.insert( porter );
      return *porter;
   }
   void retire( char name ) { Quill::Reactor::retire( porters_.remove( name ) ); }

   std::string widthIs( U16 width ) {
      shelf_->widthIs( width );
      return story_.told();
   }

   FaultRecorder recorder_;
   Story story_;
   Quill::Ptr< Shelf > const shelf_ = Quill::make< Shelf >();
   Quill::Ptr< Box > const box_ = Quill::make< Box >( "box" );
   Quill::Members< Porter, &Porter::name > porters_;
};

} // namespace Valen::Test
