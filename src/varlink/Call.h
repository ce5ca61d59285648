// One call of the control API, and the way back for its answer.
#pragma once

#include "platform/quill/Int.h"

#include <algorithm>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace Varlink {

using Json = nlohmann::json;

// Who calls, as the kernel vouches for it.
struct Caller {
   U32 uid = ~0u;
   S64 pid = 0;
   std::vector< U32 > groups; // the first is the one that files of its making get

   bool isRoot() const noexcept { return uid == 0; }
   bool isIn( U32 group ) const noexcept {
      return std::find( groups.begin(), groups.end(), group ) != groups.end();
   }
   // "root", "uid 1000"
   std::string name() const { return isRoot() ? "root" : "uid " + std::to_string( uid ); }
};

// Where the answers of a call go; gone when the client is.
class Replies {
 public:
   virtual ~Replies() = default;
   // `last`: no further answer follows.
   virtual void send( Json const & message, bool last ) = 0;
   // Bytes of answers that the client has not taken yet.
   virtual std::size_t waiting() const noexcept = 0;
   // Whether something hangs on the connection, so that it is none to make room with.
   virtual void neededIs( bool needed ) noexcept = 0;
};

class Call {
 public:
   // `client`: the number of the connection that the call came by; no two ever have the same.
   Call( std::string method, Json parameters, bool more, Caller caller, U64 client,
         std::weak_ptr< Replies > replies )
       : method_( std::move( method ) ), parameters_( std::move( parameters ) ), more_( more ),
         caller_( std::move( caller ) ), client_( client ), replies_( std::move( replies ) ) {}

   std::string const & method() const noexcept { return method_; }
   Json const & parameters() const noexcept { return parameters_; }
   // Whether the client takes more than one answer.
   bool more() const noexcept { return more_; }
   Caller const & caller() const noexcept { return caller_; }
   U64 client() const noexcept { return client_; }
   // Whether an answer can still come in useful.
   bool open() const noexcept { return !done_ && !replies_.expired(); }
   // Bytes of answers that the client has not taken yet.
   std::size_t waiting() const noexcept;
   // See Replies::neededIs.
   void neededIs( bool needed ) noexcept;

   // Answers. `continues`: another answer follows. No effect when the call is answered or the
   // client is gone.
   void reply( Json parameters, bool continues = false );
   // Ends the call with an error; `name` is qualified.
   void error( std::string const & name, Json parameters );

 private:
   void send( Json const & message, bool last );

   std::string const method_;
   Json const parameters_;
   bool const more_;
   Caller const caller_;
   U64 const client_;
   std::weak_ptr< Replies > const replies_;
   bool done_ = false;
};

// What answers the calls. Never throws; a call that it keeps it answers later.
class Service {
 public:
   virtual ~Service() = default;
   virtual void call( std::shared_ptr< Call > call ) = 0;
   // The client is gone. Called from the loop, never inside call() or an answer.
   virtual void clientGone( U64 /* client */ ) {}
};

} // namespace Varlink
