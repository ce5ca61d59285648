// A table of text: columns as wide as their widest cell.
#pragma once

#include <string>
#include <vector>

namespace Valenctl {

class Table {
 public:
   explicit Table( std::vector< std::string > heads ) { rows_.push_back( std::move( heads ) ); }

   // A row has as many cells as there are heads.
   void add( std::vector< std::string > row ) { rows_.push_back( std::move( row ) ); }
   // The whole, a line per row, without blanks at the ends of lines.
   std::string text() const;

 private:
   std::vector< std::vector< std::string > > rows_;
};

} // namespace Valenctl
