// Entities: what each kind of attribute line declares, notifies and rejects; and
// directories.
#include "platform/quill/Dir.h"
#include "platform/quill/EntityTables.h"
#include "tests/platform/quill/EntityModel.h"
#include "tests/support/LeakCheck.h"
#include "tests/support/NameInUse.h"

QUILL_ENTITY_TABLES( Valen::Test::Box )
QUILL_ENTITY_TABLES( Valen::Test::Shelf )

namespace {

using Quill::make;
using Quill::Name;
using Quill::Ptr;
using Quill::String;
using Valen::Test::Box;
using Valen::Test::Colour;
using Valen::Test::Shelf;

using Texts = std::vector< std::string >;

// Records every change of one entity as "attribute" or "attribute key".
template < class E > class Recorder final : public Quill::NotifieeOf< E const > {
 public:
   explicit Recorder( Ptr< E > const & entity ) { this->notifierIs( Ptr< E const >( entity ) ); }

   void onAttribute( Quill::AttrId id, void const * key ) override {
      auto const * const attribute = E::staticType().attribute( id );
      std::string text = attribute->name;
      if ( key ) {
         text += ' ' + attribute->keyText( key );
      }
      changes_.push_back( text );
   }

   // The notifications since the last call.
   Texts changes() { return std::exchange( changes_, {} ); }

 private:
   Texts changes_;
};

class EntityTest : public ::testing::Test, private Valen::Test::LeakCheck {
 protected:
   Ptr< Shelf > const shelf_ = make< Shelf >();
   Recorder< Shelf > recorder_{ shelf_ };
};

TEST_F( EntityTest, NewEntityHasEmptyAttributesAndNoParent ) {
   EXPECT_EQ( shelf_->width(), 0 );
   EXPECT_FALSE( shelf_->full() );
   EXPECT_EQ( shelf_->label(), String() );
   EXPECT_EQ( shelf_->lamp(), nullptr );
   EXPECT_EQ( shelf_->boxs(), 0 );
   EXPECT_EQ( shelf_->slot( 1 ), nullptr );
   EXPECT_EQ( shelf_->note( "a" ), String() );
   EXPECT_EQ( shelf_->tags(), 0 );
   EXPECT_EQ( shelf_->messages(), 0 );
   EXPECT_EQ( shelf_->message( 0 ), String() );
   EXPECT_EQ( shelf_->parent(), nullptr );
}

TEST_F( EntityTest, WriteThatChangesTheValueNotifiesOnce ) {
   shelf_->widthIs( 7 );
   EXPECT_EQ( shelf_->width(), 7 );
   EXPECT_EQ( recorder_.changes(), Texts{ "width" } );
}

TEST_F( EntityTest, WriteThatChangesNothingIsSilent ) {
   auto const lamp = make< Box >( "lamp" );
   shelf_->widthIs( 7 );
   shelf_->labelIs( "top" );
   shelf_->lampIs( lamp );
   shelf_->boxIs( "b", 1u, lamp );
   shelf_->slotIs( 1, lamp );
   shelf_->noteIs( "n", "text" );
   shelf_->tagIs( "t" );
   recorder_.changes();

   shelf_->widthIs( 7 );
   shelf_->fullIs( false );
   shelf_->loadIs( 0.0 );
   shelf_->colourIs( Colour::none );
   shelf_->labelIs( String( "to" ) + "p" );
   shelf_->lampIs( lamp );
   shelf_->boxIs( "b", 1u, lamp );
   shelf_->boxDel( "absent" );
   shelf_->slotIs( 1, lamp );
   shelf_->slotIs( 2, nullptr );
   shelf_->slotDel( 2 );
   shelf_->noteIs( "n", "text" );
   shelf_->noteDel( "absent" );
   shelf_->tagIs( "t" );
   shelf_->tagDel( "absent" );
   shelf_->guestDelAll();
   shelf_->messageDelAll();
   EXPECT_EQ( recorder_.changes(), Texts() );
}

TEST_F( EntityTest, OldValueOutlivesTheNotification ) {
   auto const lives = [] { return Box::quillAllocation.live; };
   auto const before = lives();
   shelf_->lampIs( make< Box >( "old" ) );
   U64 during = 0;
   struct Watcher : Shelf::NotifieeConst {
      void onAttribute( Quill::AttrId, void const * ) override { told(); }
      std::function< void() > told;
   } watcher;
   watcher.told = [ & ] { during = lives(); };
   watcher.notifierIs( Ptr< Shelf const >( shelf_ ) );
   shelf_->lampIs( nullptr );
   EXPECT_EQ( during, before + 1 );
   EXPECT_EQ( lives(), before );
}

TEST_F( EntityTest, CollectionChangesAreNotifiedWithTheirKey ) {
   auto const lamp = make< Box >( "lamp" );
   shelf_->boxIs( "a", 1u, nullptr );
   shelf_->boxDel( "a" );
   EXPECT_EQ( recorder_.changes(), ( Texts{ "box a", "box a" } ) );
   shelf_->slotIs( 4, lamp );
   shelf_->slotDel( 4 );
   EXPECT_EQ( recorder_.changes(), ( Texts{ "slot 4", "slot 4" } ) );
   shelf_->noteIs( "n", "one" );
   shelf_->noteIs( "n", "two" );
   EXPECT_EQ( shelf_->note( "n" ), "two" );
   shelf_->noteDel( "n" );
   EXPECT_EQ( recorder_.changes(), ( Texts{ "note n", "note n", "note n" } ) );
   shelf_->tagIs( "t" );
   EXPECT_TRUE( shelf_->tagHas( "t" ) );
   shelf_->tagDel( "t" );
   EXPECT_FALSE( shelf_->tagHas( "t" ) );
   EXPECT_EQ( recorder_.changes(), ( Texts{ "tag t", "tag t" } ) );
}

TEST_F( EntityTest, QueueNotifiesThePositionOfAnAppendedValue ) {
   shelf_->messageEnq( "first" );
   shelf_->messageEnq( "second" );
   EXPECT_EQ( recorder_.changes(), ( Texts{ "message 0", "message 1" } ) );
   EXPECT_EQ( shelf_->messages(), 2 );
   EXPECT_EQ( shelf_->message( 1 ), "second" );
   EXPECT_EQ( shelf_->message( 2 ), String() );
   shelf_->messageDelAll();
   EXPECT_EQ( recorder_.changes(), Texts{ "message" } );
   EXPECT_EQ( shelf_->messages(), 0 );
}

TEST_F( EntityTest, NullHandleUnderAKeyRemovesTheEntry ) {
   shelf_->slotIs( 4, make< Box >( "lamp" ) );
   shelf_->slotIs( 4, nullptr );
   EXPECT_FALSE( shelf_->slotHas( 4 ) );
   EXPECT_EQ( recorder_.changes(), ( Texts{ "slot 4", "slot 4" } ) );
}

TEST_F( EntityTest, DeletingAllNotifiesEachKey ) {
   auto const lamp = make< Box >( "lamp" );
   for ( U32 number = 0; number < 12; ++number ) {
      auto const text = std::to_string( number );
      shelf_->boxIs( text, number, nullptr );
      shelf_->slotIs( number, lamp );
      shelf_->noteIs( text, "text" );
      shelf_->tagIs( text );
   }
   shelf_->guestIs( lamp );
   EXPECT_EQ( recorder_.changes().size(), 49 );
   shelf_->boxDelAll();
   shelf_->slotDelAll();
   shelf_->noteDelAll();
   shelf_->tagDelAll();
   shelf_->guestDelAll();
   auto const changes = recorder_.changes();
   ASSERT_EQ( changes.size(), 49 );
   EXPECT_EQ( changes[ 0 ], "box 0" );
   EXPECT_EQ( changes[ 23 ], "slot 11" );
   EXPECT_EQ( changes[ 24 ], "note 0" );
   EXPECT_EQ( changes[ 47 ], "tag 11" );
   EXPECT_EQ(
      shelf_->boxs() + shelf_->slots() + shelf_->notes() + shelf_->tags() + shelf_->guests(), 0 );
}

TEST_F( EntityTest, OwnedMemberHasItsOwnerAsParentUntilItIsDeleted ) {
   auto const box = shelf_->boxIs( "a", 1u, nullptr );
   EXPECT_EQ( box->parent(), shelf_.get() );
   EXPECT_EQ( shelf_->box( "a" ), box );
   shelf_->boxDel( "a" );
   EXPECT_EQ( box->parent(), nullptr );
   EXPECT_FALSE( shelf_->boxHas( "a" ) );
}

TEST_F( EntityTest, OwnedMemberLosesItsParentWhenTheOwnerIsDestroyed ) {
   auto shelf = make< Shelf >();
   auto const box = shelf->boxIs( "a", 1u, nullptr );
   shelf = nullptr;
   EXPECT_EQ( box->parent(), nullptr );
   EXPECT_EQ( box->refs(), 1 );
}

TEST_F( EntityTest, MemberMadeOutsideIsAddedUnderItsOwnKey ) {
   auto const box = make< Box >( "a", 3u );
   shelf_->boxAdd( box );
   EXPECT_EQ( shelf_->box( "a" ), box );
   EXPECT_EQ( box->parent(), shelf_.get() );
   EXPECT_EQ( recorder_.changes(), Texts{ "box a" } );
   EXPECT_DEATH( shelf_->boxAdd( make< Box >( "a" ) ),
                 "assertion failed: !box_.has\\( key \\) at .*EntityModel.h:[0-9]+ in void "
                 "Valen::Test::Shelf::boxAdd\\(.*" );
}

TEST_F( EntityTest, WatchedEntityStaysAlive ) {
   auto shelf = make< Shelf >();
   auto recorder = std::make_unique< Recorder< Shelf > >( shelf );
   EXPECT_TRUE( shelf->hasNotifiees() );
   EXPECT_EQ( shelf->refs(), 2 );
   recorder->notifierIs( nullptr );
   EXPECT_FALSE( shelf->hasNotifiees() );
   EXPECT_EQ( recorder->notifier(), nullptr );
   EXPECT_EQ( shelf->refs(), 1 );
   recorder->notifierIs( Ptr< Shelf const >( shelf ) );
   EXPECT_EQ( recorder->notifier(), shelf.get() );
   recorder.reset();
   EXPECT_FALSE( shelf->hasNotifiees() ) << "a destroyed notifiee is unregistered";
}

TEST_F( EntityTest, RepointedNotifieeIsNotifiedByTheNewEntityOnly ) {
   auto const other = make< Shelf >();
   recorder_.notifierIs( Ptr< Shelf const >( other ) );
   shelf_->widthIs( 1 );
   EXPECT_EQ( recorder_.changes(), Texts() );
   other->widthIs( 1 );
   EXPECT_EQ( recorder_.changes(), Texts{ "width" } );
}

TEST_F( EntityTest, RepointingToTheSameEntityKeepsIt ) {
   recorder_.notifierIs( Ptr< Shelf const >( shelf_ ) );
   shelf_->widthIs( 1 );
   EXPECT_EQ( recorder_.changes(), Texts{ "width" } );
}

TEST_F( EntityTest, ReinstantiationWithTheSameParametersReturnsTheMember ) {
   auto const lid = make< Box >( "lid" );
   auto const box = shelf_->boxIs( "a", 5u, lid );
   EXPECT_EQ( shelf_->boxIs( "a", 5u, lid ), box );
   EXPECT_EQ( shelf_->boxs(), 1 );
   EXPECT_EQ( recorder_.changes(), Texts{ "box a" } );
}

TEST_F( EntityTest, ReinstantiationWithAnotherValueFailsAndChangesNothing ) {
   auto const box = shelf_->boxIs( "a", 5u, nullptr );
   recorder_.changes();
   EXPECT_EQ( Valen::Test::nameInUse( [ & ] { shelf_->boxIs( "a", 6u, nullptr ); } ),
              "Reinstantiating the pointer interface where constructor parameter attribute _weight "
              "has a different value of 6 than the current value of 5" );
   EXPECT_EQ( shelf_->box( "a" ), box );
   EXPECT_EQ( box->weight(), 5 );
   EXPECT_EQ( recorder_.changes(), Texts() );
}

TEST_F( EntityTest, ReinstantiationNamesHandlesByTheirAddress ) {
   auto const lid = make< Box >( "lid" );
   auto const other = make< Box >( "other" );
   shelf_->boxIs( "a", 5u, lid );
   std::string const start = "Reinstantiating the pointer interface where constructor parameter "
                             "attribute _lid has a different value of ";
   std::string const middle = " than the current value of ";
   auto const address = []( Ptr< Box > const & box ) {
      char text[ 32 ];
      std::snprintf( text, sizeof text, "0x%zx", reinterpret_cast< std::size_t >( box.get() ) );
      return std::string( text );
   };
   EXPECT_EQ( Valen::Test::nameInUse( [ & ] { shelf_->boxIs( "a", 5u, other ); } ),
              start + address( other ) + middle + address( lid ) );
   EXPECT_EQ( Valen::Test::nameInUse( [ & ] { shelf_->boxIs( "a", 5u, nullptr ); } ),
              start + "null" + middle + address( lid ) );
}

TEST_F( EntityTest, FirstParameterThatDiffersIsNamed ) {
   shelf_->boxIs( "a", 5u, nullptr );
   auto const text =
      Valen::Test::nameInUse( [ & ] { shelf_->boxIs( "a", 6u, make< Box >( "lid" ) ); } );
   EXPECT_NE( text.find( " _weight " ), std::string::npos ) << text;
}

TEST_F( EntityTest, ParameterCheckWorksOnAnyValueWithADisplayForm ) {
   Quill::requireSameParameter( "_nsName", Name( "ns" ), Name( "ns" ) );
   EXPECT_EQ(
      Valen::Test::nameInUse(
         [] { Quill::requireSameParameter( "_nsName", Name( "new" ), Name( "old" ) ); } ),
      "Reinstantiating the pointer interface where constructor parameter attribute _nsName has a "
      "different value of new than the current value of old" );
}

// A directory and its notifications.
class DirTest : public ::testing::Test, private Valen::Test::LeakCheck {
 protected:
   Ptr< Quill::Dir > const dir_ = make< Quill::Dir >();
   Recorder< Quill::Dir > recorder_{ dir_ };
};

TEST_F( DirTest, EntryCanBeThereBeforeItsEntity ) {
   EXPECT_FALSE( dir_->entryHas( "a" ) );
   dir_->entryIs( "a" );
   EXPECT_TRUE( dir_->entryHas( "a" ) );
   EXPECT_EQ( dir_->entry( "a" ), nullptr );
   EXPECT_EQ( dir_->entrys(), 1 );
   EXPECT_EQ( recorder_.changes(), Texts{ "entry a" } );
   auto const box = make< Box >( "box" );
   dir_->entryIs( "a", box );
   EXPECT_EQ( dir_->entry( "a" ), box );
   EXPECT_EQ( dir_->entrys(), 1 );
   EXPECT_EQ( box->parent(), dir_.get() );
   EXPECT_EQ( recorder_.changes(), Texts{ "entry a" } );
}

TEST_F( DirTest, NamingAnEntryAgainLeavesItsEntity ) {
   auto const box = make< Box >( "box" );
   dir_->entryIs( "a", box );
   recorder_.changes();
   dir_->entryIs( "a" );
   EXPECT_EQ( dir_->entry( "a" ), box );
   dir_->entryIs( "a", box );
   EXPECT_EQ( box->parent(), dir_.get() );
   EXPECT_EQ( recorder_.changes(), Texts() );
}

TEST_F( DirTest, ExchangedEntityLosesItsParent ) {
   auto const old = make< Box >( "old" );
   auto const box = make< Box >( "new" );
   dir_->entryIs( "a", old );
   dir_->entryIs( "a", box );
   EXPECT_EQ( old->parent(), nullptr );
   EXPECT_EQ( box->parent(), dir_.get() );
   EXPECT_EQ( recorder_.changes(), ( Texts{ "entry a", "entry a" } ) );
}

TEST_F( DirTest, EntityCanBeRemovedWhileItsEntryStays ) {
   auto const box = make< Box >( "box" );
   dir_->entryIs( "a", box );
   dir_->entryIs( "a", nullptr );
   EXPECT_TRUE( dir_->entryHas( "a" ) );
   EXPECT_EQ( dir_->entry( "a" ), nullptr );
   EXPECT_EQ( box->parent(), nullptr );
   EXPECT_EQ( recorder_.changes(), ( Texts{ "entry a", "entry a" } ) );
}

TEST_F( DirTest, DeletedEntryIsGoneWithItsEntity ) {
   auto const box = make< Box >( "box" );
   dir_->entryIs( "a", box );
   dir_->entryIs( "b" );
   recorder_.changes();
   dir_->entryDel( "a" );
   dir_->entryDel( "absent" );
   EXPECT_EQ( box->parent(), nullptr );
   EXPECT_FALSE( dir_->entryHas( "a" ) );
   dir_->entryDel( "b" );
   EXPECT_EQ( recorder_.changes(), ( Texts{ "entry a", "entry b" } ) );
}

TEST_F( DirTest, DeletingAllNotifiesEachEntry ) {
   for ( int number = 0; number < 10; ++number ) {
      dir_->entryIs( std::to_string( number ), number % 2 ? make< Box >( "box" ) : nullptr );
   }
   recorder_.changes();
   dir_->entryDelAll();
   EXPECT_EQ( dir_->entrys(), 0 );
   auto const changes = recorder_.changes();
   ASSERT_EQ( changes.size(), 10 );
   EXPECT_EQ( changes.front(), "entry 0" );
   EXPECT_EQ( changes.back(), "entry 9" );
}

TEST_F( DirTest, EntitiesLoseTheirParentWhenTheDirectoryIsDestroyed ) {
   auto dir = make< Quill::Dir >();
   auto const box = make< Box >( "box" );
   dir->entryIs( "a", box );
   dir->entryIs( "b" );
   dir = nullptr;
   EXPECT_EQ( box->parent(), nullptr );
   EXPECT_EQ( box->refs(), 1 );
}

TEST_F( DirTest, DirectoriesNest ) {
   auto const inner = make< Quill::Dir >();
   dir_->entryIs( "agent", inner );
   inner->entryIs( "messages", make< Box >( "box" ) );
   EXPECT_EQ( recorder_.changes(), Texts{ "entry agent" } ) << "changes below are not notified";
   EXPECT_EQ( inner->parent(), dir_.get() );
}

} // namespace
