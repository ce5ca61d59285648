// Text in the OpenMetrics format, version 1.0.0.
#pragma once

#include "platform/quill/Int.h"

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Valend {

class OpenMetrics {
 public:
   using Labels = std::vector< std::pair< std::string_view, std::string_view > >;

   // Starts a family. `type`: "counter", "gauge", "info" or "histogram"; `unit` is the last part of the
   // name, or empty.
   void family( std::string_view name, std::string_view type, std::string_view help,
                std::string_view unit = "" );
   // A sample of the family: its name, `suffix` ("_total" of a counter), and its labels.
   void sample( std::string_view suffix, Labels const & labels, double value );
   void sample( std::string_view suffix, Labels const & labels, U64 value );

   // A family of one sample without labels.
   void counter( std::string_view name, std::string_view help, U64 value );
   void gauge( std::string_view name, std::string_view help, U64 value );

   // The whole text, with the end mark.
   std::string text() const { return text_ + "# EOF\n"; }

   // The number in the format's notation: "0.5", "1.0".
   static std::string number( double value );

 private:
   void line( std::string_view suffix, Labels const & labels, std::string const & value );

   std::string text_;
   std::string name_;
};

} // namespace Valend
