#include "settings/YamlOutline.h"

#include "settings/Limits.h"

#include <sstream>
#include <string_view>
#include <utility>
#include <yaml-cpp/eventhandler.h>

namespace Settings {

namespace {

bool isOneOf( char character, std::string_view set ) {
   return set.find( character ) != set.npos;
}

YamlTooLarge tooDeep( YAML::Mark const & mark ) {
   return { mark, "nested deeper than " + std::to_string( maxDepth ) + ", which is the limit" };
}

YamlTooLarge tooMany( YAML::Mark const & mark, std::size_t limit ) {
   return { mark, "more than " + std::to_string( limit ) + " values, which is the limit" };
}

// Counts what is in brackets and braces: the scanner of yaml-cpp keeps all of it before the parser sees any, at
// 100 bytes for each character of "[[[[". It need not be exact: text that it takes for brackets has to have more
// than a hundred unclosed ones to be rejected, and text that it overlooks is counted by the parser's events.
class BracketScan {
 public:
   BracketScan( std::string_view text, std::size_t limit ) : text_( text ), limit_( limit ) {}

   void run() {
      for ( ; at_ < text_.size(); advance() ) {
         auto const character = text_[ at_ ];
         bool const begins = isOneOf( before_, " \t\r\n[]{},:" ); // a token may begin here
         if ( character == '#' && isOneOf( before_, " \t\r\n" ) ) {
            skipComment();
         } else if ( ( character == '"' || character == '\'' ) && begins ) {
            count();
            skipQuoted( character );
         } else if ( isOneOf( character, "[{" ) && ( depth_ || begins || inProperty_ ) ) {
            if ( ++depth_ > maxDepth ) {
               throw tooDeep( mark() );
            }
            count();
         } else if ( isOneOf( character, "]}" ) ) {
            depth_ -= depth_ ? 1 : 0;
         } else if ( isOneOf( character, ",&!*?" ) ) {
            count();
         }
         inProperty_ =
            inProperty_ ? !isOneOf( character, " \t\r\n" ) : begins && isOneOf( character, "&!*" );
      }
   }

 private:
   YAML::Mark mark() const {
      YAML::Mark mark;
      mark.pos = static_cast< int >( at_ );
      mark.line = line_;
      mark.column = static_cast< int >( at_ - lineBegin_ );
      return mark;
   }

   void count() {
      if ( depth_ && ++values_ > limit_ ) {
         throw tooMany( mark(), limit_ );
      }
   }

   void advance() {
      if ( at_ >= text_.size() ) {
         return;
      }
      before_ = text_[ at_++ ];
      if ( before_ == '\n' ) {
         ++line_;
         lineBegin_ = at_;
      }
   }

   // Up to the line's end, which is left.
   void skipComment() {
      while ( at_ + 1 < text_.size() && text_[ at_ + 1 ] != '\n' ) {
         advance();
      }
   }

   // Up to the closing quote, which is left. Two single quotes stand for one.
   void skipQuoted( char quote ) {
      for ( advance(); at_ < text_.size() && text_[ at_ ] != quote; advance() ) {
         if ( quote == '"' && text_[ at_ ] == '\\' ) {
            advance();
         }
      }
   }

   std::string_view const text_;
   std::size_t const limit_;
   std::size_t at_ = 0;
   std::size_t lineBegin_ = 0;
   int line_ = 0;
   char before_ = '\n';
   bool inProperty_ = false; // in an anchor, a tag or an alias
   std::size_t depth_ = 0;
   std::size_t values_ = 0;
};

// Counts values and depth, and collects the place where each document begins: its first value.
class Outliner final : public YAML::EventHandler {
 public:
   explicit Outliner( std::size_t limit ) : limit_( limit ) {}

   YamlOutline outline;

   void OnDocumentStart( YAML::Mark const & ) override { inside_ = false; }
   void OnDocumentEnd() override {}
   void OnNull( YAML::Mark const & mark, YAML::anchor_t ) override { value( mark ); }
   void OnAlias( YAML::Mark const & mark, YAML::anchor_t ) override { value( mark ); }
   void OnScalar( YAML::Mark const & mark, std::string const &, YAML::anchor_t,
                  std::string const & ) override {
      value( mark );
   }
   void OnSequenceStart( YAML::Mark const & mark, std::string const &, YAML::anchor_t,
                         YAML::EmitterStyle::value ) override {
      begin( mark );
   }
   void OnSequenceEnd() override { --depth_; }
   void OnMapStart( YAML::Mark const & mark, std::string const &, YAML::anchor_t,
                    YAML::EmitterStyle::value ) override {
      begin( mark );
   }
   void OnMapEnd() override { --depth_; }

 private:
   void begin( YAML::Mark const & mark ) {
      value( mark );
      if ( ++depth_ > maxDepth ) {
         throw tooDeep( mark );
      }
   }
   void value( YAML::Mark const & mark ) {
      if ( !std::exchange( inside_, true ) ) {
         outline.documents.push_back( mark );
      }
      if ( ++outline.values > limit_ ) {
         throw tooMany( mark, limit_ );
      }
   }

   std::size_t const limit_;
   std::size_t depth_ = 0;
   bool inside_ = false;
};

} // namespace

// Of the documents it asks for two. Asking for all of them would loop forever, because the parser does not advance
// past a comma at the beginning of a document.
YamlOutline outlineOf( std::string const & text, std::size_t limit ) {
   BracketScan( text, limit ).run();
   std::istringstream stream( text );
   YAML::Parser parser( stream );
   Outliner outliner( limit );
   if ( parser.HandleNextDocument( outliner ) ) {
      parser.HandleNextDocument( outliner );
   }
   return std::move( outliner.outline );
}

} // namespace Settings
