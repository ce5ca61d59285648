// The state store: what is mounted where, by which provider, and for how long.
#include "platform/orrery/EntityManager.h"
#include "platform/orrery/QuillShoal.h"

#include "tests/support/LeakCheck.h"
#include "tests/support/OnChange.h"

#include <gmock/gmock.h>

namespace Orrery {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Texts = std::vector< std::string >;

// Publishes an empty directory at each path that is asked for but those named in `nothingAt`.
class Publisher final : public MountProvider {
 public:
   Quill::Ptr< Quill::Entity > mount( std::string_view path ) override {
      asked.push_back( "mount " + std::string( path ) );
      if ( path == nothingAt ) {
         return nullptr;
      }
      auto & entity = published[ std::string( path ) ];
      if ( !entity ) {
         entity = Quill::make< Quill::Dir >();
      }
      return entity;
   }
   void unmount( std::string_view path ) override {
      asked.push_back( "unmount " + std::string( path ) );
      published.erase( std::string( path ) );
   }

   Texts asked;
   std::string nothingAt;
   std::map< std::string, Quill::Ptr< Quill::Dir > > published;
};

class OrreryTest : public testing::Test, protected Valen::Test::LeakCheck {
 protected:
   OrreryTest() { manager->mountProviderIs( "kni/", &publisher ); }

   Publisher publisher;
   Quill::Ptr< EntityManager > manager = Quill::make< EntityManager >();
};

// --- The root ------------------------------------------------------------------------------------

TEST_F( OrreryTest, AStoreStartsWithAnEmptyRoot ) {
   ASSERT_TRUE( manager->root() );
   EXPECT_EQ( manager->root()->entrys(), 0u );
   EXPECT_EQ( manager->root()->parent(), nullptr );
   EXPECT_EQ( manager->mounts(), 0u );
}

TEST_F( OrreryTest, TheTreeIsWatchedFromItsRoot ) {
   Texts names;
   auto const watch = Valen::Test::onChange< Quill::Dir::entryAttr >(
      manager->root(), [ & ] { names.push_back( "changed" ); } );
   auto const child = Quill::make< Quill::Dir >();
   manager->root()->entryIs( "config", child );
   EXPECT_EQ( child->parent(), manager->root().get() );
   manager->root()->entryDel( "config" );
   EXPECT_EQ( child->parent(), nullptr );
   EXPECT_EQ( names.size(), 2u );
}

TEST_F( OrreryTest, TheRootOutlivesADestroyedStore ) {
   auto const root = manager->root();
   root->entryIs( "config" );
   manager = nullptr;
   EXPECT_TRUE( root->entryHas( "config" ) );
}

// --- Mounts --------------------------------------------------------------------------------------

TEST_F( OrreryTest, AMountedPathLeadsToWhatIsPublishedThere ) {
   EXPECT_FALSE( manager->mounted( "kni/ns/red/status" ) );
   manager->mount( "kni/ns/red/status" );
   EXPECT_EQ( manager->mounted( "kni/ns/red/status" ),
              publisher.published.at( "kni/ns/red/status" ) );
   EXPECT_FALSE( manager->mounted( "kni/ns/red" ) );
   EXPECT_FALSE( manager->mounted( "kni/ns/red/status/" ) );
}

TEST_F( OrreryTest, MountingTwiceAsksOnceAndIsUndoneByOneUnmount ) {
   manager->mount( "kni/a" );
   auto const entity = manager->mounted( "kni/a" );
   manager->mount( "kni/a" );
   EXPECT_EQ( manager->mounted( "kni/a" ), entity );
   EXPECT_EQ( manager->mounts(), 1u );
   manager->unmount( "kni/a" );
   EXPECT_FALSE( manager->mounted( "kni/a" ) );
   EXPECT_EQ( manager->mounts(), 0u );
   EXPECT_THAT( publisher.asked, ElementsAre( "mount kni/a", "unmount kni/a" ) );
}

TEST_F( OrreryTest, UnmountingAPathThatIsNotMountedCallsNoProvider ) {
   manager->unmount( "kni/a" );
   manager->mount( "kni/b" );
   manager->unmount( "kni/a" );
   EXPECT_THAT( publisher.asked, ElementsAre( "mount kni/b" ) );
   EXPECT_EQ( manager->mounts(), 1u );
}

TEST_F( OrreryTest, APathWithNothingPublishedIsMountedAndEmpty ) {
   publisher.nothingAt = "kni/a";
   manager->mount( "kni/a" );
   EXPECT_FALSE( manager->mounted( "kni/a" ) );
   EXPECT_EQ( manager->mounts(), 1u );
   publisher.nothingAt.clear();
   manager->mount( "kni/a" ); // still mounted, so the provider is not called again
   EXPECT_FALSE( manager->mounted( "kni/a" ) );
   manager->unmount( "kni/a" );
   manager->mount( "kni/a" );
   EXPECT_TRUE( manager->mounted( "kni/a" ) );
}

TEST_F( OrreryTest, APathOfNoProviderIsMountedAndEmpty ) {
   manager->mount( "elsewhere/a" );
   EXPECT_FALSE( manager->mounted( "elsewhere/a" ) );
   manager->unmount( "elsewhere/a" );
   EXPECT_THAT( publisher.asked, IsEmpty() );
   EXPECT_EQ( manager->mounts(), 0u );
}

TEST_F( OrreryTest, EachPrefixHasItsProvider ) {
   Publisher other;
   manager->mountProviderIs( "other/", &other );
   manager->mount( "other/a" );
   manager->mount( "kni/a" );
   EXPECT_THAT( other.asked, ElementsAre( "mount other/a" ) );
   EXPECT_THAT( publisher.asked, ElementsAre( "mount kni/a" ) );
   EXPECT_NE( manager->mounted( "other/a" ), manager->mounted( "kni/a" ) );
   manager->unmount( "other/a" );
   EXPECT_THAT( other.asked, ElementsAre( "mount other/a", "unmount other/a" ) );
}

TEST_F( OrreryTest, AProviderThatIsTakenBackIsNotAskedAgain ) {
   Publisher other;
   manager->mountProviderIs( "other/", &other );
   manager->mount( "kni/a" );
   auto const entity = manager->mounted( "kni/a" );
   manager->mountProviderIs( "kni/", nullptr );
   EXPECT_EQ( manager->mounted( "kni/a" ), entity ) << "what is mounted stays";
   manager->unmount( "kni/a" );
   manager->mount( "kni/a" );
   EXPECT_FALSE( manager->mounted( "kni/a" ) );
   EXPECT_THAT( publisher.asked, ElementsAre( "mount kni/a" ) );
   manager->mount( "other/a" );
   EXPECT_TRUE( manager->mounted( "other/a" ) ) << "the others stay";
}

TEST_F( OrreryTest, AnotherProviderTakesAPrefixOver ) {
   Publisher other;
   manager->mountProviderIs( "kni/", &other );
   manager->mount( "kni/a" );
   EXPECT_THAT( publisher.asked, IsEmpty() );
   EXPECT_THAT( other.asked, ElementsAre( "mount kni/a" ) );
}

TEST_F( OrreryTest, AMountHoldsItsEntityAndLetsItGo ) {
   manager->mount( "kni/a" );
   publisher.published.clear(); // its publisher releases it
   auto const live = Quill::Dir::quillAllocation.live;
   ASSERT_TRUE( manager->mounted( "kni/a" ) );
   manager->unmount( "kni/a" );
   EXPECT_EQ( Quill::Dir::quillAllocation.live, live - 1 );
}

TEST_F( OrreryTest, AWatcherOfAMountedEntityKeepsItBeyondTheUnmount ) {
   manager->mount( "kni/a" );
   auto const dir = publisher.published.at( "kni/a" );
   Texts told;
   auto const watch = Valen::Test::onChange< Quill::Dir::entryAttr >(
      Quill::ptrCast< Quill::Dir >( manager->mounted( "kni/a" ) ),
      [ & ] { told.push_back( "changed" ); } );
   dir->entryIs( "device" );
   manager->unmount( "kni/a" );
   dir->entryDel( "device" );
   EXPECT_EQ( told.size(), 2u );
}

TEST_F( OrreryTest, ADestroyedStoreReleasesItsMounts ) {
   auto const before = Quill::Dir::quillAllocation.live;
   manager->mount( "kni/a" );
   publisher.published.clear();
   manager = nullptr;
   EXPECT_EQ( Quill::Dir::quillAllocation.live, before - 1 ) << "the root went, too";
}

// --- Mounts through QuillShoal -------------------------------------------------------------------

class QuillShoalTest : public OrreryTest {
 protected:
   // A mount object that is ready.
   Quill::Ptr< QuillShoal::Mount > mount() const {
      auto const made = Quill::make< QuillShoal::Mount >( manager );
      made->handleInitialized();
      return made;
   }

   static constexpr QuillShoal::MountInfo info{ QuillShoal::MountType::reader };
};

TEST_F( QuillShoalTest, MountsThroughTheStore ) {
   auto const mount = this->mount();
   EXPECT_FALSE( mount->getEntity( "kni/a" ) );
   mount->doMount( "kni/a", "Quill::Dir", info );
   EXPECT_EQ( mount->getEntity( "kni/a" ), publisher.published.at( "kni/a" ) );
   EXPECT_EQ( manager->mounted( "kni/a" ), mount->getEntity( "kni/a" ) );
   mount->doUnmount( "kni/a" );
   EXPECT_FALSE( mount->getEntity( "kni/a" ) );
   EXPECT_THAT( publisher.asked, ElementsAre( "mount kni/a", "unmount kni/a" ) );
}

TEST_F( QuillShoalTest, WhatOneMountsAnotherSeesAndUndoes ) {
   mount()->doMount( "kni/a", "Quill::Dir", info ); // gone at once, and its mount stays
   EXPECT_TRUE( mount()->getEntity( "kni/a" ) );
   mount()->doUnmount( "kni/a" );
   EXPECT_EQ( manager->mounts(), 0u );
}

TEST_F( QuillShoalTest, AnEntityOfAnotherTypeIsMountedAllTheSame ) {
   mount()->doMount( "kni/a", "KernelNetInfo::Status", info );
   EXPECT_TRUE( Quill::ptrCast< Quill::Dir >( mount()->getEntity( "kni/a" ) ) );
}

TEST_F( QuillShoalTest, UnmountingWhatIsNotMountedIsHarmless ) {
   mount()->doUnmount( "" );
   mount()->doUnmount( "kni/a" );
   EXPECT_THAT( publisher.asked, IsEmpty() );
}

TEST_F( QuillShoalTest, NothingIsMountedBeforeItIsReady ) {
   auto const mount = Quill::make< QuillShoal::Mount >( manager );
   EXPECT_DEATH( mount->doMount( "kni/a", "Quill::Dir", info ), "assertion failed: initialized_ " );
   EXPECT_DEATH( mount->doUnmount( "kni/a" ), "assertion failed: initialized_ " );
   EXPECT_FALSE( mount->getEntity( "kni/a" ) );
}

TEST_F( QuillShoalTest, AReaderIsMountTypeThree ) {
   EXPECT_EQ( static_cast< int >( QuillShoal::MountType::reader ), 3 );
}

TEST_F( QuillShoalTest, AMountKeepsItsStoreAlive ) {
   auto const mount = this->mount();
   mount->doMount( "kni/a", "Quill::Dir", info );
   manager = nullptr;
   EXPECT_TRUE( mount->getEntity( "kni/a" ) );
}

} // namespace
} // namespace Orrery
