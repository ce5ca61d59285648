// An interface description, parsed: the methods of an interface, and what their parameters must be.
#pragma once

#include "platform/quill/Int.h"

#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace Varlink {

using Json = nlohmann::json;

// A description that cannot be parsed; the text begins with "LINE:COLUMN: ".
class DescriptionError : public std::runtime_error {
 public:
   DescriptionError( std::size_t line, std::size_t column, std::string const & text )
       : runtime_error( std::to_string( line ) + ":" + std::to_string( column ) + ": " + text ) {}
};

struct Field;

struct Type {
   enum class Kind : U8 {
      boolean,
      integer, // of 64 bits, signed
      number,
      string,
      object,      // any value but null: its shape is not described
      enumeration, // a string, one of `values`
      structure,   // an object of `fields`
      array,       // of `element`
      map,         // from strings to `element`
      optional,    // `element`, null, or left out
      named,       // the type `name`
   };

   Kind kind = Kind::object;
   std::string name;
   std::vector< std::string > values;
   std::vector< Field > fields;
   std::shared_ptr< Type const > element; // null for the kinds that have none
};

struct Field {
   std::string name;
   Type type;
};

class Description {
 public:
   struct Method {
      std::string name;
      Type parameters; // a structure
      Type answer;     // a structure
   };

   // Types may be nested this deep in one another.
   static constexpr int maxDepth = 16;

   // Parses the text of a .varlink file. Throws DescriptionError.
   explicit Description( std::string_view text );

   // "org.example.service"
   std::string const & name() const noexcept { return name_; }
   // By name.
   std::map< std::string, Method > const & methods() const noexcept { return methods_; }
   // The parameters of each error; by name.
   std::map< std::string, Type > const & errors() const noexcept { return errors_; }
   // By name.
   std::map< std::string, Type > const & types() const noexcept { return types_; }

   // What a named type stands for; any other type is itself.
   Type const & resolved( Type const & type ) const;
   // Whether the value is of the type.
   bool conforms( Json const & value, Type const & type ) const;
   // The first field of the object that is unknown, missing or not of its type; nothing when all are
   // as the structure describes them.
   std::optional< std::string > mismatch( Json const & object, Type const & structure ) const;

 private:
   std::string name_;
   std::map< std::string, Method > methods_;
   std::map< std::string, Type > errors_;
   std::map< std::string, Type > types_;
};

} // namespace Varlink
