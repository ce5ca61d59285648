// valenctl's command line: builds it from the commands' rows, parses it and runs the command.
#pragma once

#include "valenctl/Options.h"
#include "valenctl/command/Command.h"
#include "valenctl/text/Terminal.h"

#include <iosfwd>
#include <memory>
#include <vector>

namespace Valenctl {

struct Output;

class Commands {
 public:
   Commands();
   ~Commands();

   // The parser with all commands and options, to complete and to document them.
   CLI::App const & app() const { return *app_; }
   // The common options; set once run() has parsed the command line.
   Options const & options() const { return options_; }

   // Parses the command line, runs the command and returns what to exit with. Data goes to `out`,
   // everything else to `err`; each error is one line there, and with --json also an object on `out`.
   Exit run( int argc, char const * const * argv, Terminal const & terminal, std::ostream & out,
             std::ostream & err );

 private:
   void add( CommandRow const & row, std::string const & heading );
   Exit runForHosts( Output const & output ) const;
   Exit invalid( std::vector< std::string > const & words, std::string const & problem,
                 Output const & output ) const;
   Exit complete( std::vector< std::string > const & words, std::ostream & out ) const;

   Options options_;
   std::unique_ptr< CLI::App > app_;
   std::vector< std::unique_ptr< Command > > commands_;
   Command * selected_ = nullptr; // the command that was parsed
};

} // namespace Valenctl
