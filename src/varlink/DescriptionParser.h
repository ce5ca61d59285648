// Parses interface descriptions: https://varlink.org/Interface-Definition
#pragma once

#include "varlink/Description.h"

namespace Varlink {

class DescriptionParser {
 public:
   // The text must outlive the parser.
   explicit DescriptionParser( std::string_view text ) : rest_( text ), text_( text ) {}

   struct Content {
      std::string name;
      std::map< std::string, Description::Method > methods;
      std::map< std::string, Type > errors;
      std::map< std::string, Type > types;
   };
   // Parses all of the text. Throws DescriptionError.
   Content parse();

 private:
   // A name of a type, where it is used.
   struct Reference {
      std::string name;
      std::size_t at;
   };

   void member();
   Type type();
   Type plainType();
   Type structureOrEnumeration();
   Type structure();
   void fields( Type & structure );
   void values( Type & enumeration, std::string first );
   void requireTypes() const;

   // The next piece of the text, past whitespace and comments.
   void skip();
   bool take( std::string_view token );
   void expect( std::string_view token );
   std::string word( char const * what, bool ( *isPart )( char c ) );
   std::string interfaceName();
   std::string memberName();
   std::string fieldName();
   std::size_t at() const noexcept { return text_.size() - rest_.size(); }
   [[noreturn]] void fail( std::string const & text ) const { failAt( at(), text ); }
   [[noreturn]] void failAt( std::size_t place, std::string const & text ) const;

   std::string_view rest_;
   std::string_view const text_;
   Content content_;
   std::vector< Reference > references_;
   int depth_ = 0;
};

} // namespace Varlink
