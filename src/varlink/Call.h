// One call of a service, and the way back for its answers.
#pragma once

#include "platform/quill/Int.h"
#include "varlink/Errors.h"
#include "varlink/Framing.h"

#include <algorithm>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace Varlink {

// The user who calls, as the kernel reports it.
struct Caller {
   U32 uid = ~0u;
   S64 pid = 0;
   std::vector< U32 > groups; // the first is the one that new files get

   bool isRoot() const noexcept { return uid == 0; }
   bool isIn( U32 group ) const noexcept {
      return std::find( groups.begin(), groups.end(), group ) != groups.end();
   }
   // "root", "uid 1000"
   std::string name() const { return isRoot() ? "root" : "uid " + std::to_string( uid ); }
};

// How much a client's user may do. Connections are reserved for those who may do more.
enum class Rank : U8 {
   stranger, // nothing that matters
   user,     // look
   admin,    // change something
   root,
};

// How many answers a client takes: with "more" as many as there are, with "oneway" none.
enum class Wanted : U8 { one, many, none };

// Where the answers of a call go; destroyed with the connection.
class Replies {
 public:
   virtual ~Replies() = default;
   virtual void send( Encoded message ) = 0;
   // The call has had its last answer.
   virtual void finished() = 0;
   // Bytes of answers that the client has not taken yet.
   virtual std::size_t waiting() const noexcept = 0;
   // Whether there is room for one more connection that lasts, which this one may become.
   virtual bool mayLast() const = 0;
   // The call lasts until its client goes, as a watch does.
   virtual void lasts() noexcept = 0;
   // Whether something is bound to the connection, so that it lasts and is not closed to make room.
   virtual void neededIs( bool needed ) noexcept = 0;
};

class Call {
 public:
   // `parameters` is an object. `client`: the number of the connection; no two ever have the same.
   Call( std::string method, Json parameters, Wanted wanted, Caller caller, U64 client,
         std::weak_ptr< Replies > replies )
       : method_( std::move( method ) ), parameters_( std::move( parameters ) ), wanted_( wanted ),
         caller_( std::move( caller ) ), client_( client ), replies_( std::move( replies ) ) {}

   std::string const & method() const noexcept { return method_; }
   Json const & parameters() const noexcept { return parameters_; }
   // Whether the client takes more than one answer.
   bool more() const noexcept { return wanted_ == Wanted::many; }
   Caller const & caller() const noexcept { return caller_; }
   U64 client() const noexcept { return client_; }
   // Whether an answer can still reach the client.
   bool open() const noexcept { return !done_ && !replies_.expired(); }
   // Bytes of answers that the client has not taken yet.
   std::size_t waiting() const noexcept;
   // See Replies. A call whose client is gone may last.
   bool mayLast() const;
   void lasts() noexcept;
   void neededIs( bool needed ) noexcept;

   // The last answer. Without effect, like the others, once the call is answered or its client is
   // gone.
   void reply( Json parameters );
   // An answer that is followed by another. The call must be one with more().
   void replyContinues( Json parameters );
   // The same, with what encodedAnswer() has made for one or more calls.
   void reply( Encoded answer );
   void replyContinues( Encoded answer );
   // Ends the call with an error; `name` is qualified.
   void error( std::string const & name, Json parameters );
   void error( Error const & error ) { this->error( error.name(), error.parameters() ); }

 private:
   std::shared_ptr< Replies > replies() const;
   void sendLast( Encoded message );
   void sendLast( Json const & message );

   std::string const method_;
   Json const parameters_;
   Wanted const wanted_;
   Caller const caller_;
   U64 const client_;
   std::weak_ptr< Replies > const replies_;
   bool done_ = false;
};

// What answers the calls.
class Service {
 public:
   virtual ~Service() = default;
   // Answers now, or keeps the call and answers later. Must not throw.
   virtual void call( std::shared_ptr< Call > call ) = 0;
   // Decides for which connections there is room.
   virtual Rank rankOf( Caller const & caller ) const {
      return caller.isRoot() ? Rank::root : Rank::user;
   }
   // The client is gone. Called from the loop, never inside call() or an answer.
   virtual void clientGone( U64 /* client */ ) {}
};

} // namespace Varlink
