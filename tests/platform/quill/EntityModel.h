// Entities for the tests of the framework: a shelf has attributes of every kind, and its boxes are
// built from parameters.
#pragma once

#include "platform/quill/Attributes.h"

namespace Valen::Test {

enum class Colour : U8 { none, red = 3 };

class Box final : public Quill::Entity {
   QUILL_ENTITY( Valen::Test::Box )
 public:
   explicit Box( Quill::Name name, U32 weight = 0, Quill::Ptr< Box const > lid = nullptr )
       : name_( std::move( name ) ), weight_( weight ), lid_( std::move( lid ) ) {}

   QUILL_PARAMETER( Quill::Name, name )
   QUILL_PARAMETER( U32, weight )
   QUILL_PARAMETER( Quill::Ptr< Box const >, lid )
   QUILL_SINGLE( Quill::Ptr< Box >, neighbor )
};

class Shelf final : public Quill::Entity {
   QUILL_ENTITY( Valen::Test::Shelf )
 public:
   QUILL_SINGLE( U16, width )
   QUILL_SINGLE( bool, full )
   QUILL_SINGLE( double, load )
   QUILL_SINGLE( Valen::Test::Colour, colour )
   QUILL_SINGLE( Quill::String, label )
   QUILL_SINGLE( Quill::Ptr< Box >, lamp )
   QUILL_MEMBERS( Box, box, name )
   QUILL_MAP( U32, Quill::Ptr< Box >, slot )
   QUILL_MAP( Quill::Name, Quill::String, note )
   QUILL_SET( Quill::Name, tag )
   QUILL_SET( Quill::Ptr< Box >, guest )
   QUILL_QUEUE( Quill::String, message )
};

} // namespace Valen::Test
