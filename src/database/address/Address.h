// Where a database server is, and who we are to it, as an operator writes it:
//
//   unix:///run/redis/redis-server.sock
//   redis://[USER[:PASSWORD]@]HOST[:PORT]
//
// both followed by ?db=N, ?user=NAME and ?password-file=PATH, with "&" between them. "%" and two hexadecimal digits
// stand for a byte. An IPv6 address is written in brackets.
#pragma once

#include "platform/quill/Int.h"

#include <stdexcept>
#include <string>

namespace Database {

// what() says what is wrong and what is expected, and never has a password.
class InvalidAddress : public std::invalid_argument {
 public:
   using invalid_argument::invalid_argument;
};

struct Address {
   std::string path = {}; // of a Unix socket; empty for TCP
   std::string host = {}; // a name, an IPv4 or an IPv6 address; empty for a Unix socket
   U16 port = 6379;
   U32 database = 0;
   std::string user = {};
   std::string password = {};     // from the text itself
   std::string passwordFile = {}; // holds the password in its first line
   bool operator==( Address const & ) const = default;

   // Throws InvalidAddress.
   static Address parse( std::string const & text );

   // For logs and errors: without password.
   std::string text() const;
};

} // namespace Database
