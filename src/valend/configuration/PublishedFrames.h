// The content of the file "published" of the state directory: what agents have published with the lifetime "kept".
//
// Each line is a JSON object with agent, interface, and frames in hexadecimal; a later line replaces an earlier one of
// the same agent and interface, and one without frames withdraws them. What changes is appended, whatever else is in
// the file. When most of it is outdated, it is rewritten.
#pragma once

#include "settings/Frames.h"

#include <map>
#include <string>
#include <utility>
#include <vector>

namespace Valend {

// A plain value, for use in another thread than the loop's. No function throws.
class PublishedFrames {
 public:
   struct Entry {
      std::string agent;
      std::string interface;
      Settings::Frames frames; // none: withdrawn
   };
   using Entries = std::vector< Entry >;

   // Bytes of outdated lines that do no harm.
   static constexpr std::size_t slack = 1u << 20;

   // The file, for writing and for texts.
   explicit PublishedFrames( std::string path ) : path_( std::move( path ) ) {}

   // Takes over the content of the file. An incomplete last line, of a write that did not end, is ignored. Returns what
   // is wrong with other lines, which are lost; empty when nothing is. The next save() rewrites the file then.
   std::string read( std::string const & text );
   // What the file has.
   Entries entries() const;

   // Writes what `changes` change to the file in the open directory, and waits for the disk. Returns an empty text, or
   // why it cannot be written: "cannot write PATH: REASON". The changes are not forgotten then: the next call saves
   // them, too.
   std::string save( int directory, Entries const & changes );

 private:
   using Key = std::pair< std::string, std::string >;

   void readLine( std::string const & line );
   void readList( std::string const & text );
   bool take( Entry const & change );
   std::string rewrite( int directory );
   static std::string lineOf( Entry const & entry );
   static std::size_t lineBytes( Settings::Frames const & frames );

   std::string path_;
   std::map< Key, Settings::Frames > frames_;
   std::size_t liveBytes_ = 0; // of the file's lines that are not outdated, roughly
   std::size_t fileBytes_ = 0;
   bool stale_ = true; // the file must be rewritten
};

} // namespace Valend
