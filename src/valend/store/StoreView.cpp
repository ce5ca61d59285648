#include "valend/store/StoreView.h"

#include "valend/base/Errors.h"

namespace Valend {

using Quill::Entity;
using Quill::Ptr;

// Notices changes of one entity along the path.
class StoreView::Follower final : public Quill::NotifieeOf< Entity const > {
 public:
   Follower( StoreView & view, Ptr< Entity const > entity ) : view_( view ) {
      notifierIs( std::move( entity ) );
   }
   void onAttribute( Quill::AttrId /* attributeId */, void const * /* key */ ) override {
      if ( !view_.moved_ ) {
         view_.moved_ = true;
         view_.notice();
      }
   }

 private:
   StoreView & view_;
};

StoreView::StoreView( Orrery::EntityManager const & entityManager, StoreTexts & texts,
                      std::string path, std::function< void() > changed )
    : entityManager_( entityManager ), texts_( texts ), path_( std::move( path ) ),
      changed_( std::move( changed ) ) {}

StoreView::~StoreView() {
   texts_.doneDel( this );
   if ( node_ ) {
      node_->followDel( this );
   }
}

// Finds what the path names now.
void StoreView::resolve() {
   if ( !std::exchange( moved_, false ) ) {
      return;
   }
   stale_ = true;
   StoreVisits visits;
   auto const place = placeAt( entityManager_, path_, visits );
   follow( visits );
   plain_ = place && place->value
               ? std::make_shared< std::string const >( storeText( *place->value ) )
               : nullptr;
   auto const * const entity = place && !place->value ? place->entity.get() : nullptr;
   auto const * const attribute = place ? place->attribute : nullptr;
   if ( node_ && entity == entity_ && attribute == attribute_ ) {
      return;
   }
   if ( node_ ) {
      node_->followDel( this );
   }
   entity_ = entity;
   attribute_ = attribute;
   node_ = entity ? texts_.node( place->entity, attribute ) : nullptr;
   if ( node_ ) {
      node_->follow( this, [ this ] { notice(); } );
   }
}

void StoreView::follow( StoreVisits const & visits ) {
   along_.clear();
   for ( auto const & entity : visits ) {
      along_.push_back( std::make_unique< Follower >( *this, entity ) );
   }
}

void StoreView::notice() {
   stale_ = true;
   changed_();
}

bool StoreView::ready() {
   resolve();
   auto most = few;
   if ( !stale_ || refreshed_ || !node_ || node_->refreshFew( most ) ) {
      return true;
   }
   if ( !std::exchange( awaited_, true ) ) {
      texts_.refresh( this, [ this ] {
         awaited_ = false;
         refreshed_ = true;
         changed_();
      } );
   }
   return false;
}

StoreView::Text StoreView::text() {
   resolve();
   if ( !stale_ ) {
      return text_;
   }
   stale_ = false;
   refreshed_ = false;
   if ( !node_ ) {
      return text_ = plain_;
   }
   std::string text;
   text.reserve( text_ ? text_->size() + 1000 : 0 );
   std::size_t values = 0;
   node_->append( text, values );
   if ( values > maxValues ) {
      throw Errors::tooManyValues( maxValues );
   }
   if ( !text_ || *text_ != text ) {
      text_ = std::make_shared< std::string const >( std::move( text ) );
   }
   return text_;
}

} // namespace Valend
