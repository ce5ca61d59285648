#include "valend/store/StoreTexts.h"

#include <algorithm>

namespace Valend {

using Quill::Attribute;
using Quill::Entity;
using Quill::Ptr;

namespace {

// After so many turns, what has become stale meanwhile is made again when it is appended.
constexpr int mostTurns = 1000;

} // namespace

// --- A node --------------------------------------------------------------------------------------

StoreNode::StoreNode( StoreTexts & texts, Ptr< Entity const > entity, Attribute const * only )
    : texts_( texts ), only_( only ) {
   notifierIs( std::move( entity ) );
}

StoreNode::~StoreNode() {
   for ( auto const & owned : owned_ ) {
      owned->parentDel( this );
   }
   auto const found = texts_.nodes_.find( notifier() );
   if ( found != texts_.nodes_.end() && found->second.expired() ) {
      texts_.nodes_.erase( found );
   }
}

void StoreNode::append( std::string & text, std::size_t & values ) {
   refresh();
   values += text_.values;
   for ( std::size_t i = 0; i < owned_.size(); ++i ) {
      text += text_.parts[ i ];
      owned_[ i ]->append( text, values );
   }
   text += text_.parts.back();
}

bool StoreNode::refreshFew( std::size_t & most ) {
   if ( most == 0 ) {
      return false;
   }
   --most;
   refresh();
   return std::all_of( owned_.begin(), owned_.end(),
                       [ & ]( auto const & owned ) { return owned->refreshFew( most ); } );
}

void StoreNode::refresh() {
   if ( !stale_ ) {
      return;
   }
   stale_ = false;
   text_ = storeText( *notifier(), only_ );
   std::vector< std::shared_ptr< StoreNode > > owned;
   for ( auto & entity : text_.owned ) {
      owned.push_back( texts_.node( std::move( entity ) ) );
      owned.back()->parents_.push_back( this );
   }
   text_.owned.clear();
   for ( auto const & before : owned_ ) {
      before->parentDel( this );
   }
   owned_ = std::move( owned );
}

void StoreNode::follow( void const * key, Changed changed ) {
   followers_.emplace_back( key, std::move( changed ) );
}

void StoreNode::followDel( void const * key ) {
   std::erase_if( followers_, [ & ]( auto const & follower ) { return follower.first == key; } );
}

void StoreNode::onAttribute( Quill::AttrId attributeId, void const * /* key */ ) {
   if ( stale_ || ( only_ && only_->id != attributeId ) ) {
      return;
   }
   stale_ = true;
   texts_.add( shared_from_this() );
   tell();
}

void StoreNode::tell() {
   for ( auto const & [ key, changed ] : followers_ ) {
      changed();
   }
   for ( auto * const parent : parents_ ) {
      parent->tell();
   }
}

// One entry: while the parent's text is made again, it may be there twice.
void StoreNode::parentDel( StoreNode const * parent ) {
   auto const found = std::find( parents_.begin(), parents_.end(), parent );
   if ( found != parents_.end() ) {
      parents_.erase( found );
   }
}

// --- All of them ---------------------------------------------------------------------------------

StoreTexts::StoreTexts( Ptr< Gantry::TaskScheduler > scheduler, Gantry::WorkQueue & work )
    : scheduler_( scheduler ), slices_( work, scheduler, "store texts" ),
      rest_( std::move( scheduler ), "store texts", [ this ] { refreshSome(); } ) {}

StoreTexts::~StoreTexts() = default;

std::shared_ptr< StoreNode > StoreTexts::node( Ptr< Entity const > entity,
                                               Attribute const * only ) {
   std::weak_ptr< StoreNode > none;
   auto & known = only ? none : nodes_[ entity.get() ];
   if ( auto node = known.lock() ) {
      return node;
   }
   auto node = std::make_shared< StoreNode >( *this, std::move( entity ), only );
   known = node;
   add( node );
   return node;
}

// Notes it for the next refresh. Those that few entities are read for never come to that.
void StoreTexts::add( std::shared_ptr< StoreNode > const & stale ) {
   if ( stale_.size() > 2 * nodes_.size() + 100 ) {
      std::erase_if( stale_, []( auto const & each ) { return each.expired(); } );
   }
   if ( !std::exchange( stale->listed_, true ) ) {
      stale_.push_back( stale );
   }
}

void StoreTexts::refresh( void const * key, std::function< void() > done ) {
   waiting_.emplace_back( key, std::move( done ) );
   if ( turns_ || rest_.running() ) {
      return;
   }
   if ( auto const now = scheduler_->now(); now < restEnd_ ) {
      return rest_.start( restEnd_ - now );
   }
   ++turns_;
   slices_.post( [ this ] { refreshSome(); } );
}

void StoreTexts::doneDel( void const * key ) {
   std::erase_if( waiting_, [ & ]( auto const & entry ) { return entry.first == key; } );
}

void StoreTexts::refreshSome() {
   ++turns_;
   slices_.begin();
   while ( !stale_.empty() && slices_.goesOn() ) {
      auto const node = stale_.front().lock();
      stale_.pop_front();
      if ( node ) {
         node->listed_ = false;
         node->refresh();
      }
   }
   spent_ += slices_.spent();
   if ( !stale_.empty() && turns_ < mostTurns && !waiting_.empty() ) {
      return slices_.post( [ this ] { refreshSome(); } );
   }
   restEnd_ = scheduler_->now() + restFactor * std::exchange( spent_, Gantry::Time( 0 ) );
   turns_ = 0;
   for ( auto const & [ key, done ] : std::exchange( waiting_, {} ) ) {
      done();
   }
}

} // namespace Valend
