// What the output is connected to, and the colors that suit it.
#pragma once

#include <string>

namespace Valenctl {

// Colors for text. A plain palette returns text unchanged.
class Palette {
 public:
   static Palette plain() { return Palette( Mode::plain ); }
   static Palette colored() { return Palette( Mode::colored ); }

   std::string green( std::string const & text ) const { return painted( text, '2' ); }
   std::string red( std::string const & text ) const { return painted( text, '1' ); }
   std::string yellow( std::string const & text ) const { return painted( text, '3' ); }

 private:
   enum class Mode { plain, colored };
   explicit Palette( Mode mode ) : mode_( mode ) {}
   std::string painted( std::string const & text, char color ) const;

   Mode mode_;
};

struct Terminal {
   bool out = false;                   // standard output is a terminal, which can be redrawn
   bool err = false;                   // standard error is one
   Palette palette = Palette::plain(); // for standard output
};

// Describes the process's standard output and error. Colors are on for a terminal unless NO_COLOR is set.
Terminal terminalOfProcess();

} // namespace Valenctl
