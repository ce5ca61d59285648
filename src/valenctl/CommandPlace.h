// A place in a command line: which command the words so far name, and what may stand there.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace CLI {
class App;
class Option;
} // namespace CLI

namespace Valenctl {

class CommandPlace {
 public:
   // The beginning of the command line of `app`, which must outlive this.
   explicit CommandPlace( CLI::App const & app ) : app_( &app ) {}

   // Passes the next word.
   void pass( std::string const & word );

   // Whether the next word is an option, or looks like one that does not exist.
   bool isOption( std::string const & word ) const;
   // Whether the next word must name a command.
   bool expectsCommand() const;

   // The innermost command so far.
   CLI::App const & command() const noexcept { return *app_; }
   // The same as typed: "valenctl frame lldp".
   std::string commandPath() const;
   // The commands that may follow.
   std::vector< CLI::App const * > commands() const;
   CLI::App const * commandCalled( std::string const & word ) const;
   // The options that may follow: those of the command and of all that it is below.
   std::vector< CLI::Option const * > options() const;
   CLI::Option const * optionCalled( std::string const & word ) const;
   // The option before the next word, whose value that is; null if there is not one.
   CLI::Option const * awaitsValue() const noexcept { return awaitsValue_; }
   // The argument that the next word would be; null when no more are taken.
   CLI::Option const * argument() const;

 private:
   CLI::App const * app_;
   std::size_t arguments_ = 0; // of that command, so far
   CLI::Option const * awaitsValue_ = nullptr;
};

} // namespace Valenctl
