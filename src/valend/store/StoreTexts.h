// The texts of the store's entities, each made once and again after the entity has changed, for all
// StoreViews together.
#pragma once

#include "platform/gantry/Timer.h"
#include "valend/base/Slices.h"
#include "valend/store/StoreText.h"

#include <deque>
#include <memory>
#include <unordered_map>

namespace Valend {

class StoreTexts;

// The text of an entity, or of one attribute, and what it owns.
class StoreNode final : public Quill::NotifieeOf< Quill::Entity const >,
                        public std::enable_shared_from_this< StoreNode > {
 public:
   using Changed = std::function< void() >;

   StoreNode( StoreTexts & texts, Quill::Ptr< Quill::Entity const > entity,
              Quill::Attribute const * only );
   ~StoreNode() override;

   // Appends the text, made again where it is stale, and adds the number of its values.
   void append( std::string & text, std::size_t & values );
   // Makes stale texts again; visits at most `most` entities. Whether none is left.
   bool refreshFew( std::size_t & most );
   // Makes its own text again, if it is stale.
   void refresh();

   // Calls `changed`, inside a notification, when the entity or what it owns changes; at least once until
   // the text is appended again. `key` identifies it for followDel().
   void follow( void const * key, Changed changed );
   void followDel( void const * key );

   void onAttribute( Quill::AttrId attributeId, void const * key ) override;

 private:
   friend class StoreTexts;

   void tell();
   void parentDel( StoreNode const * parent );

   StoreTexts & texts_;
   Quill::Attribute const * const only_;
   StoreText text_;
   bool stale_ = true;
   bool listed_ = false; // among the stale ones
   std::vector< std::shared_ptr< StoreNode > > owned_;
   std::vector< StoreNode * > parents_;
   std::vector< std::pair< void const *, Changed > > followers_;
};

class StoreTexts {
 public:
   // The pause after stale texts were made again is this many times as long as that took.
   static constexpr int restFactor = 4;

   StoreTexts( Quill::Ptr< Gantry::TaskScheduler > scheduler, Gantry::WorkQueue & work );
   ~StoreTexts();
   StoreTexts( StoreTexts const & ) = delete;
   StoreTexts & operator=( StoreTexts const & ) = delete;

   // The node of an entity, or of an attribute of it if that is not null.
   std::shared_ptr< StoreNode > node( Quill::Ptr< Quill::Entity const > entity,
                                      Quill::Attribute const * only = nullptr );
   // Makes all stale texts again, a slice a turn; then calls `done`, unless doneDel() was called. `key`
   // identifies it for doneDel().
   void refresh( void const * key, std::function< void() > done );
   void doneDel( void const * key );

   std::size_t nodes() const noexcept { return nodes_.size(); }

 private:
   friend class StoreNode;

   void add( std::shared_ptr< StoreNode > const & stale );
   void refreshSome();

   Quill::Ptr< Gantry::TaskScheduler > const scheduler_;
   std::unordered_map< Quill::Entity const *, std::weak_ptr< StoreNode > > nodes_;
   std::deque< std::weak_ptr< StoreNode > > stale_;
   std::vector< std::pair< void const *, std::function< void() > > > waiting_;
   Slices slices_;
   Gantry::Timer rest_;
   Gantry::Time spent_{};
   Gantry::Time restEnd_{};
   int turns_ = 0; // since the refresh began; 0: none is under way
};

} // namespace Valend
