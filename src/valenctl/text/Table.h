// A table of text, with columns as wide as their widest cell.
#pragma once

#include <string>
#include <vector>

namespace Valenctl {

class Table {
 public:
   explicit Table( std::vector< std::string > headings ) {
      rows_.push_back( std::move( headings ) );
   }

   // Adds a row below the others. A row has as many cells as there are headings.
   void add( std::vector< std::string > row ) { rows_.push_back( std::move( row ) ); }
   // The headings and all rows, one line each, without trailing spaces.
   std::string text() const;

 private:
   std::vector< std::vector< std::string > > rows_;
};

} // namespace Valenctl
