// What is at a path of the store, as JSON, now and after each change.
#pragma once

#include "valend/store/StorePath.h"
#include "valend/store/StoreTexts.h"

namespace Valend {

class StoreView {
 public:
   // The largest number of values in one text.
   static constexpr std::size_t maxValues = 200'000;
   // So many entities are read at once; more of them a slice a turn.
   static constexpr std::size_t few = 100;

   using Text = std::shared_ptr< std::string const >;

   // `entityManager` and `texts` must outlive this. `changed` is called, possibly inside a notification,
   // when text() may have changed and when it has become ready.
   StoreView( Orrery::EntityManager const & entityManager, StoreTexts & texts, std::string path,
              std::function< void() > changed );
   ~StoreView();
   StoreView( StoreView const & ) = delete;
   StoreView & operator=( StoreView const & ) = delete;

   // Whether text() takes little time. If not, calls `changed` once it does.
   bool ready();
   // The value; null when there is no such path. The same pointer while it is the same. Throws Refusal
   // "TooLarge".
   Text text();

 private:
   class Follower;

   void resolve();
   void follow( StoreVisits const & visits );
   void notice();

   Orrery::EntityManager const & entityManager_;
   StoreTexts & texts_;
   std::string const path_;
   std::function< void() > const changed_;
   std::vector< std::unique_ptr< Follower > > along_; // the path's entities
   Quill::Entity const * entity_ = nullptr;           // what the node is of
   Quill::Attribute const * attribute_ = nullptr;
   std::shared_ptr< StoreNode > node_; // null for a plain value
   Text plain_;                        // that value
   Text text_;
   bool moved_ = true;    // the path may name something else
   bool stale_ = true;    // text_ is
   bool awaited_ = false; // the texts are being refreshed for this
   bool refreshed_ = false;
};

} // namespace Valend
