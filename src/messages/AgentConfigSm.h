// Valen::AgentConfigSm and MessageDirSm: put the frames of agents into the library's model. There
// is one AgentConfigSm per agent, which owns the MessageDirSm of the agent's message directory.
#pragma once

#include "platform/quill/Children.h"
#include "platform/quill/Watch.h"
#include "types/ValenTypes.h"

namespace Valen {

// Puts one agent's frames into the model. The IntfMessage of an interface has one entry per agent,
// so that agents do not override one another.
//   watches   the agent's message directory
//   writes    AllIntf::intfMessage; in each IntfMessage the entry of this agent, nothing else
//   owned by  AgentConfigSm
// Between two handlers, from handleInitialized() to handleDestruction():
//   (1) each message of messageDir is under name() in the IntfMessage of its interface;
//   (2) no IntfMessage is empty.
class MessageDirSm final : public Quill::Reactor {
   QUILL_TRACKED( Valen::MessageDirSm )
 public:
   // `name` is the agent's. Keeps all three; none null.
   MessageDirSm( Quill::Name name, Quill::Ptr< Config::Agent::MessageDir const > messageDir,
                 Quill::Ptr< AllIntf > allIntf );
   ~MessageDirSm() override;

   char const * reactorName() const noexcept override { return "MessageDirSm"; }

   Quill::Name const & name() const noexcept { return name_; }
   Quill::Ptr< Config::Agent::MessageDir const > messageDir() const noexcept {
      return messageDir_.handle();
   }
   Quill::Ptr< AllIntf > const & allIntf() const noexcept { return allIntf_; }

   static constexpr auto quillParameters() {
      return std::tuple( Quill::Parameter( "_name", &MessageDirSm::name ),
                         Quill::Parameter( "_messageDir", &MessageDirSm::messageDir ),
                         Quill::Parameter( "_allIntf", &MessageDirSm::allIntf ) );
   }

   void handleInitialized();
   void handleMessage( Corvid::IntfId intfId );
   // The agent no longer has a message for the interface. Deletes the IntfMessage if it was the
   // last.
   void handleMessageRemoval( Corvid::IntfId intfId );
   void handleDestruction();

 private:
   using MessageDir = Config::Agent::MessageDir;

   Quill::Name const name_;
   Quill::Watch< MessageDirSm, MessageDir const,
                 Quill::On< MessageDir::messageAttr, &MessageDirSm::handleMessage > >
      messageDir_;
   Quill::Ptr< AllIntf > const allIntf_;
};

Quill::Ptr< MessageDirSm >
messageDirSmFactory( Quill::Name name, Quill::Ptr< Config::Agent::MessageDir const > messageDir,
                     Quill::Ptr< AllIntf > allIntf );

// Follows the directory of one agent and keeps a MessageDirSm while it has a message directory.
//   watches   the agent's directory
//   writes    nothing itself
//   owns      the MessageDirSm
//   owned by  ConfigSm
// There is at most one child, that of the entry handled last. This is enough because an agent's
// directory has exactly one message directory.
class AgentConfigSm final : public Quill::Reactor {
   QUILL_TRACKED( Valen::AgentConfigSm )
 public:
   // `name` is the agent's. Keeps all three; none null.
   AgentConfigSm( Quill::Name name, Quill::Ptr< Quill::Dir const > agentDir,
                  Quill::Ptr< AllIntf > allIntf );
   ~AgentConfigSm() override;

   char const * reactorName() const noexcept override { return "AgentConfigSm"; }

   Quill::Name const & name() const noexcept { return name_; }
   Quill::Ptr< Quill::Dir const > agentDir() const noexcept { return agentDir_.handle(); }
   Quill::Ptr< AllIntf > const & allIntf() const noexcept { return allIntf_; }

   static constexpr auto quillParameters() {
      return std::tuple( Quill::Parameter( "_agentDir", &AgentConfigSm::agentDir ),
                         Quill::Parameter( "_allIntf", &AgentConfigSm::allIntf ) );
   }

   // Null while there is no message directory.
   Quill::Ptr< MessageDirSm > const & messageDirSm() const noexcept { return messageDirSm_.get(); }
   // Keeps a child that was made from the same values and replaces any other. A null `messageDir`
   // leaves no child: the entry's entity is not a message directory.
   void messageDirSmIs( Quill::Name name, Quill::Ptr< Config::Agent::MessageDir const > messageDir,
                        Quill::Ptr< AllIntf > allIntf );
   void messageDirSmDel();

   void handleInitialized();
   void handleMessageDir( Quill::Name name );
   void handleDestruction();

 private:
   Quill::Name const name_;
   Quill::Watch< AgentConfigSm, Quill::Dir const,
                 Quill::On< Quill::Dir::entryAttr, &AgentConfigSm::handleMessageDir > >
      agentDir_;
   Quill::Ptr< AllIntf > const allIntf_;
   Quill::Child< MessageDirSm > messageDirSm_;
};

Quill::Ptr< AgentConfigSm > agentConfigSmFactory( Quill::Name name,
                                                  Quill::Ptr< Quill::Dir const > agentDir,
                                                  Quill::Ptr< AllIntf > allIntf );

} // namespace Valen
