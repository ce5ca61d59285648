#include "messages/AgentConfigSm.h"

#include "tests/support/LeakCheck.h"
#include "tests/support/OnChange.h"
#include "tests/support/TraceCapture.h"

#include <gmock/gmock.h>

namespace Valen {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

using Config::Agent::Message;
using Config::Agent::MessageDir;
using Valen::Test::onChange;

Quill::Ptr< Message const > message( char const * intfId, char const * text = "bye" ) {
   auto const made = Quill::make< Message >( intfId );
   made->messageEnq( text );
   return made;
}

// Counts the notifications of the model's message records.
class RecordWatcher final : public AllIntf::NotifieeConst {
 public:
   void onAttribute( Quill::AttrId attributeId, void const * key ) override {
      if ( attributeId == AllIntf::intfMessageAttr::id ) {
         told.push_back( static_cast< Corvid::IntfId const * >( key )->stdString() );
      }
   }
   std::vector< std::string > told;
};

// One model, and the agents that a test makes.
class MessagesTest : public testing::Test, protected Valen::Test::LeakCheck {
 protected:
   // The names of the agents that have an entry for an interface.
   std::vector< std::string > agentsOf( char const * intfId ) const {
      std::vector< std::string > agents;
      if ( auto const record = allIntf->intfMessage( intfId ) ) {
         for ( auto const & entry : record->message() ) {
            agents.push_back( entry.key.stdString() );
         }
      }
      return agents;
   }

   Quill::Ptr< AllIntf > const allIntf = allIntfFactory();
   Valen::Test::TraceCapture trace;
};

// --- One agent's message directory ---------------------------------------------------------------

class MessageDirSmTest : public MessagesTest {
 protected:
   Quill::Ptr< MessageDir > const dir = Quill::make< MessageDir >();
   Quill::Ptr< MessageDir > const otherDir = Quill::make< MessageDir >();
};

TEST_F( MessageDirSmTest, KeepsWhatItWasMadeFrom ) {
   auto const sm = messageDirSmFactory( "lacp", dir, allIntf );
   EXPECT_EQ( sm->name(), "lacp" );
   EXPECT_EQ( sm->messageDir(), dir );
   EXPECT_EQ( sm->allIntf(), allIntf );
   EXPECT_STREQ( sm->reactorName(), "MessageDirSm" );
}

TEST_F( MessageDirSmTest, ReplaysTheMessagesThatExist ) {
   dir->messageIs( "Ethernet1", message( "Ethernet1" ) );
   dir->messageIs( "Ethernet2", message( "Ethernet2" ) );
   auto const sm = messageDirSmFactory( "lacp", dir, allIntf );
   EXPECT_EQ( allIntf->intfMessages(), 2u );
   EXPECT_THAT( agentsOf( "Ethernet1" ), ElementsAre( "lacp" ) );
   EXPECT_THAT( agentsOf( "Ethernet2" ), ElementsAre( "lacp" ) );
   EXPECT_THAT(
      trace.texts(),
      ElementsAre( "void Valen::MessageDirSm::handleInitialized(): ",
                   "void Valen::MessageDirSm::handleMessage(Corvid::IntfId): lacp, Ethernet1",
                   "void Valen::MessageDirSm::handleMessage(Corvid::IntfId): added intfMessage to "
                   "allIntf",
                   "void Valen::MessageDirSm::handleMessage(Corvid::IntfId): lacp, Ethernet2",
                   "void Valen::MessageDirSm::handleMessage(Corvid::IntfId): added intfMessage to "
                   "allIntf" ) );
}

TEST_F( MessageDirSmTest, TracesOnOneHandleEntryAtLevelZeroAndDecisionsAtLevelOne ) {
   auto const sm = messageDirSmFactory( "lacp", dir, allIntf );
   dir->messageIs( "Ethernet1", message( "Ethernet1" ) );
   dir->messageDel( "Ethernet1" );
   for ( auto const & line : trace.lines() ) {
      EXPECT_EQ( line.unit, "AgentConfigSm" );
      bool const decision = line.text.find( "intfMessage" ) != std::string::npos;
      EXPECT_EQ( line.level, decision ? 1 : 0 ) << line.text;
   }
   EXPECT_EQ( trace.texts( 1 ).size(), 2u );
}

TEST_F( MessageDirSmTest, TheEntryIsTheMessageItselfNotACopy ) {
   auto const sm = messageDirSmFactory( "lacp", dir, allIntf );
   auto const first = message( "Ethernet1" );
   dir->messageIs( "Ethernet1", first );
   EXPECT_EQ( allIntf->intfMessage( "Ethernet1" )->message( "lacp" ), first );
}

TEST_F( MessageDirSmTest, TwoAgentsMeetInOneRecord ) {
   auto const a = messageDirSmFactory( "A", dir, allIntf );
   auto const b = messageDirSmFactory( "B", otherDir, allIntf );
   dir->messageIs( "Ethernet1", message( "Ethernet1" ) );
   auto const record = allIntf->intfMessage( "Ethernet1" );
   otherDir->messageIs( "Ethernet1", message( "Ethernet1" ) );
   EXPECT_EQ( allIntf->intfMessage( "Ethernet1" ), record );
   EXPECT_EQ( allIntf->intfMessages(), 1u );
   EXPECT_THAT( agentsOf( "Ethernet1" ), UnorderedElementsAre( "A", "B" ) );
   EXPECT_THAT( trace.messages( "void Valen::MessageDirSm::handleMessage(Corvid::IntfId)" ),
                ElementsAre( "A, Ethernet1", "added intfMessage to allIntf", "B, Ethernet1" ) );
}

TEST_F( MessageDirSmTest, TheRecordIsDeletedWithTheLastAgentsMessage ) {
   auto const a = messageDirSmFactory( "A", dir, allIntf );
   auto const b = messageDirSmFactory( "B", otherDir, allIntf );
   dir->messageIs( "Ethernet1", message( "Ethernet1" ) );
   otherDir->messageIs( "Ethernet1", message( "Ethernet1" ) );
   trace.clear();

   dir->messageDel( "Ethernet1" );
   EXPECT_THAT( agentsOf( "Ethernet1" ), ElementsAre( "B" ) );
   EXPECT_THAT(
      trace.texts(),
      ElementsAre( "void Valen::MessageDirSm::handleMessage(Corvid::IntfId): A, Ethernet1",
                   "void Valen::MessageDirSm::handleMessageRemoval(Corvid::IntfId): A, "
                   "Ethernet1" ) );
   trace.clear();

   otherDir->messageDel( "Ethernet1" );
   EXPECT_FALSE( allIntf->intfMessageHas( "Ethernet1" ) );
   EXPECT_THAT(
      trace.texts(),
      ElementsAre( "void Valen::MessageDirSm::handleMessage(Corvid::IntfId): B, Ethernet1",
                   "void Valen::MessageDirSm::handleMessageRemoval(Corvid::IntfId): B, Ethernet1",
                   "void Valen::MessageDirSm::handleMessageRemoval(Corvid::IntfId): removed "
                   "intfMessage from allIntf" ) );
}

TEST_F( MessageDirSmTest, AChangedMessageReplacesTheEntryInPlace ) {
   auto const sm = messageDirSmFactory( "lacp", dir, allIntf );
   dir->messageIs( "Ethernet1", message( "Ethernet1", "old" ) );
   auto const record = allIntf->intfMessage( "Ethernet1" );
   RecordWatcher watcher;
   watcher.notifierIs( Quill::Ptr< AllIntf const >( allIntf ) );

   auto const changed = message( "Ethernet1", "new" );
   dir->messageIs( "Ethernet1", changed );
   EXPECT_EQ( allIntf->intfMessage( "Ethernet1" ), record );
   EXPECT_EQ( record->message( "lacp" ), changed );
   EXPECT_EQ( record->messages(), 1u );
   EXPECT_THAT( watcher.told, IsEmpty() );
}

TEST_F( MessageDirSmTest, RemovalForAnInterfaceWithoutRecordOnlyTracesItsEntry ) {
   auto const sm = messageDirSmFactory( "lacp", dir, allIntf );
   RecordWatcher watcher;
   watcher.notifierIs( Quill::Ptr< AllIntf const >( allIntf ) );
   trace.clear();
   sm->handleMessageRemoval( "Ethernet9" );
   EXPECT_THAT(
      trace.texts(),
      ElementsAre( "void Valen::MessageDirSm::handleMessageRemoval(Corvid::IntfId): lacp, "
                   "Ethernet9" ) );
   EXPECT_THAT( watcher.told, IsEmpty() );
}

TEST_F( MessageDirSmTest, RemovalLeavesOtherAgentsAlone ) {
   auto const a = messageDirSmFactory( "A", dir, allIntf );
   auto const b = messageDirSmFactory( "B", otherDir, allIntf );
   dir->messageIs( "Ethernet1", message( "Ethernet1" ) );
   b->handleMessageRemoval( "Ethernet1" ); // B never had one
   EXPECT_THAT( agentsOf( "Ethernet1" ), ElementsAre( "A" ) );
}

TEST_F( MessageDirSmTest, DestructionTakesTheAgentsMessagesAlong ) {
   auto a = messageDirSmFactory( "A", dir, allIntf );
   auto const b = messageDirSmFactory( "B", otherDir, allIntf );
   dir->messageIs( "Ethernet1", message( "Ethernet1" ) );
   dir->messageIs( "Ethernet2", message( "Ethernet2" ) );
   otherDir->messageIs( "Ethernet2", message( "Ethernet2" ) );
   trace.clear();
   a = nullptr;
   EXPECT_FALSE( allIntf->intfMessageHas( "Ethernet1" ) );
   EXPECT_THAT( agentsOf( "Ethernet2" ), ElementsAre( "B" ) );
   EXPECT_THAT(
      trace.texts(),
      ElementsAre( "void Valen::MessageDirSm::handleDestruction(): ",
                   "void Valen::MessageDirSm::handleMessageRemoval(Corvid::IntfId): A, Ethernet1",
                   "void Valen::MessageDirSm::handleMessageRemoval(Corvid::IntfId): removed "
                   "intfMessage from allIntf",
                   "void Valen::MessageDirSm::handleMessageRemoval(Corvid::IntfId): A, "
                   "Ethernet2" ) );
}

TEST_F( MessageDirSmTest, ChangesAfterDestructionHaveNoEffect ) {
   messageDirSmFactory( "A", dir, allIntf );
   dir->messageIs( "Ethernet1", message( "Ethernet1" ) );
   EXPECT_EQ( allIntf->intfMessages(), 0u );
}

TEST_F( MessageDirSmTest, SwitchedOffItIsNotNotified ) {
   auto const sm = messageDirSmFactory( "A", dir, allIntf );
   sm->hasNotificationActiveIs( false );
   dir->messageIs( "Ethernet1", message( "Ethernet1" ) );
   EXPECT_EQ( allIntf->intfMessages(), 0u );
   sm->hasNotificationActiveIs( true );
   dir->messageIs( "Ethernet2", message( "Ethernet2" ) );
   EXPECT_TRUE( allIntf->intfMessageHas( "Ethernet2" ) );
}

TEST_F( MessageDirSmTest, AMessageSetToNothingIsARemoval ) {
   auto const sm = messageDirSmFactory( "A", dir, allIntf );
   dir->messageIs( "Ethernet1", message( "Ethernet1" ) );
   dir->messageIs( "Ethernet1", nullptr );
   EXPECT_FALSE( allIntf->intfMessageHas( "Ethernet1" ) );
}

TEST_F( MessageDirSmTest, DecisionsAreTracedBeforeTheyAreActedOn ) {
   auto const sm = messageDirSmFactory( "A", dir, allIntf );
   std::vector< std::string > seen;
   auto const watch = onChange< AllIntf::intfMessageAttr >(
      allIntf, [ & ] { seen.push_back( trace.lines().back().text ); } );
   dir->messageIs( "Ethernet1", message( "Ethernet1" ) );
   dir->messageDel( "Ethernet1" );
   EXPECT_THAT( seen, ElementsAre( "void Valen::MessageDirSm::handleMessage(Corvid::IntfId): "
                                   "added intfMessage to allIntf",
                                   "void Valen::MessageDirSm::handleMessageRemoval(Corvid::IntfId)"
                                   ": removed intfMessage from allIntf" ) );
}

TEST_F( MessageDirSmTest, RemovalFromInsideItsOwnHandlerWaitsAndCleansUp ) {
   auto sm = messageDirSmFactory( "A", dir, allIntf );
   auto const live = MessageDirSm::quillAllocation.live;
   bool alive = false;
   auto const watch = onChange< AllIntf::intfMessageAttr >( allIntf, [ & ] {
      if ( sm ) {
         Quill::Reactor::retire( std::move( sm ) );
         alive = MessageDirSm::quillAllocation.live == live;
         dir->messageIs( "Ethernet2", message( "Ethernet2" ) ); // silenced: must not be notified
         EXPECT_FALSE( allIntf->intfMessageHas( "Ethernet2" ) );
      }
   } );
   dir->messageIs( "Ethernet1", message( "Ethernet1" ) );
   EXPECT_TRUE( alive ) << "it stays alive until its handler returns";
   EXPECT_EQ( MessageDirSm::quillAllocation.live, live - 1 );
   EXPECT_EQ( allIntf->intfMessages(), 0u );
}

// --- One agent -----------------------------------------------------------------------------------

class AgentConfigSmTest : public MessagesTest {
 protected:
   Quill::Ptr< MessageDir > newMessageDir( char const * intfId ) {
      auto const made = Quill::make< MessageDir >();
      made->messageIs( intfId, message( intfId ) );
      return made;
   }

   static constexpr char const * handleMessageDir =
      "void Valen::AgentConfigSm::handleMessageDir(Quill::Name)";

   Quill::Ptr< Quill::Dir > const agentDir = Quill::make< Quill::Dir >();
};

TEST_F( AgentConfigSmTest, KeepsWhatItWasMadeFrom ) {
   auto const sm = agentConfigSmFactory( "lacp", agentDir, allIntf );
   EXPECT_EQ( sm->name(), "lacp" );
   EXPECT_EQ( sm->agentDir(), agentDir );
   EXPECT_EQ( sm->allIntf(), allIntf );
   EXPECT_FALSE( sm->messageDirSm() );
   EXPECT_STREQ( sm->reactorName(), "AgentConfigSm" );
   EXPECT_THAT( trace.texts(), ElementsAre( "void Valen::AgentConfigSm::handleInitialized(): " ) );
   EXPECT_EQ( trace.lines().front().unit, "AgentConfigSm" );
   EXPECT_EQ( trace.lines().front().level, 0 );
}

TEST_F( AgentConfigSmTest, ReplaysTheEntriesThatExist ) {
   auto const dir = newMessageDir( "Ethernet1" );
   agentDir->entryIs( "messages", dir );
   auto const sm = agentConfigSmFactory( "lacp", agentDir, allIntf );
   ASSERT_TRUE( sm->messageDirSm() );
   EXPECT_EQ( sm->messageDirSm()->messageDir(), dir );
   EXPECT_THAT( agentsOf( "Ethernet1" ), ElementsAre( "lacp" ) );
   EXPECT_THAT( trace.messages( handleMessageDir ),
                ElementsAre( "lacp, messages", "added messageDir" ) );
   EXPECT_EQ( trace.texts( 0 ).front(), "void Valen::AgentConfigSm::handleInitialized(): " );
}

TEST_F( AgentConfigSmTest, TheChildBearsTheAgentsNameNotTheEntrys ) {
   auto const sm = agentConfigSmFactory( "lacp", agentDir, allIntf );
   agentDir->entryIs( "messages", newMessageDir( "Ethernet1" ) );
   EXPECT_EQ( sm->messageDirSm()->name(), "lacp" );
   EXPECT_EQ( sm->messageDirSm()->allIntf(), allIntf );
}

TEST_F( AgentConfigSmTest, AnEntryWithoutEntityWaitsForIt ) {
   auto const sm = agentConfigSmFactory( "lacp", agentDir, allIntf );
   trace.clear();
   agentDir->entryIs( "messages" );
   EXPECT_FALSE( sm->messageDirSm() );
   EXPECT_THAT(
      trace.texts(),
      ElementsAre( "void Valen::AgentConfigSm::handleMessageDir(Quill::Name): lacp, messages",
                   "void Valen::AgentConfigSm::handleMessageDir(Quill::Name): messageDir added but "
                   "not yet instantiated" ) );
   EXPECT_EQ( trace.lines().back().level, 1 );
   trace.clear();
   agentDir->entryIs( "messages", newMessageDir( "Ethernet1" ) );
   EXPECT_TRUE( sm->messageDirSm() );
   EXPECT_THAT( trace.messages( handleMessageDir ),
                ElementsAre( "lacp, messages", "added messageDir" ) );
}

TEST_F( AgentConfigSmTest, ARepeatedNotificationKeepsTheChild ) {
   auto const sm = agentConfigSmFactory( "lacp", agentDir, allIntf );
   agentDir->entryIs( "messages", newMessageDir( "Ethernet1" ) );
   auto const * const child = sm->messageDirSm().get();
   trace.clear();
   sm->handleMessageDir( "messages" );
   EXPECT_EQ( sm->messageDirSm().get(), child );
   EXPECT_THAT( trace.texts(),
                ElementsAre( std::string( handleMessageDir ) + ": lacp, messages",
                             std::string( handleMessageDir ) + ": added messageDir" ) );
}

TEST_F( AgentConfigSmTest, AnotherDirectoryReplacesTheChildOldOneFirst ) {
   auto const sm = agentConfigSmFactory( "lacp", agentDir, allIntf );
   agentDir->entryIs( "first", newMessageDir( "Ethernet1" ) );
   trace.clear();
   auto const second = newMessageDir( "Ethernet2" );
   agentDir->entryIs( "second", second );
   EXPECT_EQ( sm->messageDirSm()->messageDir(), second );
   EXPECT_FALSE( allIntf->intfMessageHas( "Ethernet1" ) );
   EXPECT_TRUE( allIntf->intfMessageHas( "Ethernet2" ) );
   auto const texts = trace.texts();
   auto const at = [ & ]( char const * text ) {
      return std::find( texts.begin(), texts.end(), text ) - texts.begin();
   };
   EXPECT_LT( at( "void Valen::MessageDirSm::handleDestruction(): " ),
              at( "void Valen::MessageDirSm::handleInitialized(): " ) );
}

TEST_F( AgentConfigSmTest, RemovalOfAnyEntryDestroysTheChild ) {
   auto const sm = agentConfigSmFactory( "lacp", agentDir, allIntf );
   agentDir->entryIs( "messages", newMessageDir( "Ethernet1" ) );
   agentDir->entryIs( "bystander" );
   ASSERT_TRUE( sm->messageDirSm() );
   trace.clear();
   agentDir->entryDel( "bystander" );
   EXPECT_FALSE( sm->messageDirSm() );
   EXPECT_EQ( allIntf->intfMessages(), 0u );
   EXPECT_THAT( trace.messages( handleMessageDir ),
                ElementsAre( "lacp, bystander", "removed messageDir" ) );
}

TEST_F( AgentConfigSmTest, RemovalWithoutAChildIsHarmless ) {
   auto const sm = agentConfigSmFactory( "lacp", agentDir, allIntf );
   trace.clear();
   sm->handleMessageDir( "unknown" );
   sm->messageDirSmDel();
   EXPECT_FALSE( sm->messageDirSm() );
   EXPECT_THAT( trace.texts(),
                ElementsAre( std::string( handleMessageDir ) + ": lacp, unknown",
                             std::string( handleMessageDir ) + ": removed messageDir" ) );
}

TEST_F( AgentConfigSmTest, AnEntityOfAnotherTypeIsNoMessageDirectory ) {
   auto const sm = agentConfigSmFactory( "lacp", agentDir, allIntf );
   agentDir->entryIs( "messages", newMessageDir( "Ethernet1" ) );
   agentDir->entryIs( "messages", Quill::make< Quill::Dir >() );
   EXPECT_FALSE( sm->messageDirSm() );
   EXPECT_EQ( allIntf->intfMessages(), 0u );
   EXPECT_THAT(
      trace.messages( handleMessageDir ),
      ElementsAre( "lacp, messages", "added messageDir", "lacp, messages", "added messageDir" ) );
}

TEST_F( AgentConfigSmTest, TheSetterComparesEveryArgument ) {
   auto const sm = agentConfigSmFactory( "lacp", agentDir, allIntf );
   auto const dir = newMessageDir( "Ethernet1" );
   auto const otherModel = allIntfFactory();
   sm->messageDirSmIs( "lacp", dir, allIntf );
   sm->messageDirSmIs( "other", dir, allIntf );
   EXPECT_EQ( sm->messageDirSm()->name(), "other" );
   EXPECT_THAT( agentsOf( "Ethernet1" ), ElementsAre( "other" ) );
   sm->messageDirSmIs( "other", dir, otherModel );
   EXPECT_EQ( sm->messageDirSm()->allIntf(), otherModel );
   EXPECT_EQ( allIntf->intfMessages(), 0u );
   EXPECT_EQ( otherModel->intfMessages(), 1u );
}

TEST_F( AgentConfigSmTest, TracesOnOneHandleEntryAtLevelZeroAndDecisionsAtLevelOne ) {
   auto sm = agentConfigSmFactory( "lacp", agentDir, allIntf );
   agentDir->entryIs( "messages" );
   agentDir->entryIs( "messages", Quill::make< MessageDir >() );
   agentDir->entryDel( "messages" );
   sm = nullptr;
   std::string const signature = std::string( handleMessageDir ) + ": ";
   EXPECT_THAT( trace.texts( 1 ),
                ElementsAre( signature + "messageDir added but not yet instantiated",
                             signature + "added messageDir", signature + "removed messageDir" ) );
   EXPECT_THAT(
      trace.texts( 0 ),
      ElementsAre( "void Valen::AgentConfigSm::handleInitialized(): ", signature + "lacp, messages",
                   signature + "lacp, messages", "void Valen::MessageDirSm::handleInitialized(): ",
                   signature + "lacp, messages", "void Valen::MessageDirSm::handleDestruction(): ",
                   "void Valen::AgentConfigSm::handleDestruction(): " ) );
   for ( auto const & line : trace.lines() ) {
      EXPECT_EQ( line.unit, "AgentConfigSm" );
   }
}

TEST_F( AgentConfigSmTest, DecisionsAreTracedBeforeTheyAreActedOn ) {
   auto const sm = agentConfigSmFactory( "lacp", agentDir, allIntf );
   trace.clear();
   agentDir->entryIs( "messages", Quill::make< MessageDir >() );
   agentDir->entryDel( "messages" );
   EXPECT_THAT( trace.texts(),
                ElementsAre( std::string( handleMessageDir ) + ": lacp, messages",
                             std::string( handleMessageDir ) + ": added messageDir",
                             "void Valen::MessageDirSm::handleInitialized(): ",
                             std::string( handleMessageDir ) + ": lacp, messages",
                             std::string( handleMessageDir ) + ": removed messageDir",
                             "void Valen::MessageDirSm::handleDestruction(): " ) );
}

TEST_F( AgentConfigSmTest, OfSeveralEntriesTheOneHandledLastDecides ) {
   agentDir->entryIs( "first", newMessageDir( "Ethernet1" ) );
   agentDir->entryIs( "second", newMessageDir( "Ethernet2" ) );
   auto const sm = agentConfigSmFactory( "lacp", agentDir, allIntf );
   EXPECT_EQ( sm->messageDirSm()->messageDir(), agentDir->entry( "second" ) );
   EXPECT_FALSE( allIntf->intfMessageHas( "Ethernet1" ) );
   sm->handleMessageDir( "first" );
   EXPECT_EQ( sm->messageDirSm()->messageDir(), agentDir->entry( "first" ) );
   EXPECT_TRUE( allIntf->intfMessageHas( "Ethernet1" ) );
   EXPECT_FALSE( allIntf->intfMessageHas( "Ethernet2" ) );
}

TEST_F( AgentConfigSmTest, SwitchedOffItIsNotNotified ) {
   auto const sm = agentConfigSmFactory( "lacp", agentDir, allIntf );
   trace.clear();
   sm->hasNotificationActiveIs( false );
   agentDir->entryIs( "messages", newMessageDir( "Ethernet1" ) );
   EXPECT_THAT( trace.texts(), IsEmpty() );
   sm->hasNotificationActiveIs( true );
   agentDir->entryDel( "messages" );
   EXPECT_THAT( trace.messages( handleMessageDir ),
                ElementsAre( "lacp, messages", "removed messageDir" ) );
}

TEST_F( AgentConfigSmTest, RemovalFromInsideItsOwnHandlerWaitsAndCleansUp ) {
   auto sm = agentConfigSmFactory( "lacp", agentDir, allIntf );
   auto const live = AgentConfigSm::quillAllocation.live;
   bool alive = false;
   auto const watch = onChange< AllIntf::intfMessageAttr >( allIntf, [ & ] {
      if ( sm ) {
         Quill::Reactor::retire( std::move( sm ) );
         alive = AgentConfigSm::quillAllocation.live == live;
         agentDir->entryIs( "silenced" );
      }
   } );
   trace.clear();
   agentDir->entryIs( "messages", newMessageDir( "Ethernet1" ) );
   EXPECT_TRUE( alive ) << "it stays alive until its handler returns";
   EXPECT_EQ( AgentConfigSm::quillAllocation.live, live - 1 );
   EXPECT_EQ( MessageDirSm::quillAllocation.live, 0u );
   EXPECT_EQ( allIntf->intfMessages(), 0u );
   EXPECT_THAT( trace.messages( handleMessageDir ),
                ElementsAre( "lacp, messages", "added messageDir" ) );
}

TEST_F( AgentConfigSmTest, AChildRemovedInsideItsOwnHandlerStaysAliveUntilItReturns ) {
   auto const sm = agentConfigSmFactory( "lacp", agentDir, allIntf );
   auto const dir = Quill::make< MessageDir >();
   agentDir->entryIs( "messages", dir );
   bool alive = false;
   auto const watch = onChange< AllIntf::intfMessageAttr >( allIntf, [ & ] {
      if ( sm->messageDirSm() ) {
         agentDir->entryDel( "messages" );
         EXPECT_FALSE( sm->messageDirSm() );
         alive = MessageDirSm::quillAllocation.live == 1;
         dir->messageIs( "Ethernet2", message( "Ethernet2" ) ); // silenced: must not be notified
         EXPECT_FALSE( allIntf->intfMessageHas( "Ethernet2" ) );
      }
   } );
   dir->messageIs( "Ethernet1", message( "Ethernet1" ) );
   EXPECT_TRUE( alive );
   EXPECT_EQ( MessageDirSm::quillAllocation.live, 0u );
   EXPECT_EQ( allIntf->intfMessages(), 0u );
}

TEST_F( AgentConfigSmTest, DestructionTakesTheChildFirst ) {
   auto sm = agentConfigSmFactory( "lacp", agentDir, allIntf );
   agentDir->entryIs( "messages", newMessageDir( "Ethernet1" ) );
   trace.clear();
   sm = nullptr;
   EXPECT_EQ( allIntf->intfMessages(), 0u );
   EXPECT_THAT(
      trace.texts(),
      ElementsAre(
         "void Valen::AgentConfigSm::handleDestruction(): ",
         "void Valen::MessageDirSm::handleDestruction(): ",
         "void Valen::MessageDirSm::handleMessageRemoval(Corvid::IntfId): lacp, Ethernet1",
         "void Valen::MessageDirSm::handleMessageRemoval(Corvid::IntfId): removed intfMessage "
         "from allIntf" ) );
}

} // namespace
} // namespace Valen
