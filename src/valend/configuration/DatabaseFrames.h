// The frames that agents have in a database: entities "frames:AGENT:INTERFACE" with the fields
//   0001, 0002, ...   the bytes of a frame each; they are sent in order of these names
//   owner             whose they are, a text for people; may be left out
//   lease             a key of the database, with its prefix, that must exist; may be left out
//
// They are published with the lifetime "database" (Publications.h), one entity at a time. One that is wrong is rejected;
// what it had last stays published. Frames whose lease does not exist are withdrawn, and are back with it.
// They are rejected for as long as they are not active, with the reason, but stay: they become active as soon as
// the configuration allows it.
#pragma once

#include "settings/Overlay.h"
#include "valend/base/Slices.h"
#include "valend/configuration/DatabaseFile.h"
#include "valend/configuration/Publications.h"

#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>

namespace Valend {

class DatabaseFrames {
 public:
   static constexpr char const * prefix = "frames:"; // of the keys
   static constexpr std::size_t maxOwnerBytes = 255;
   static constexpr std::size_t maxLeaseBytes = 512;
   static constexpr std::size_t maxNumberDigits = 8;

   using Rejected = std::function< void( std::string const & key, std::string const & why ) >;
   using LeaseWanted = std::function< void( std::string const & key, bool wanted ) >;

   // All must outlive this.
   DatabaseFrames( Publications & publications, DatabaseFile & file );

   void rejectedIs( Rejected rejected ) { rejected_ = std::move( rejected ); }
   void leaseWantedIs( LeaseWanted wanted ) { leaseWanted_ = std::move( wanted ); }

   void entityIs( std::string const & key, Settings::Fields const & fields );
   void entityGone( std::string const & key );
   // Whether the key exists. Until it is known, the frames are not published.
   void leaseIs( std::string const & key, bool exists );
   // Frames of the previous run. Their leases exist until something else is known.
   void resume( std::string const & key, Settings::Fields const & fields );

   // Withdraws what was not told since the last call of begin(), in steps.
   void begin();
   Slices::Step sweepStep();
   // Finds out again why frames are not active, in steps.
   Slices::Step configChangedStep();

 private:
   struct Value {
      Settings::Frames frames;
      std::string owner;
      std::string lease; // empty: none
   };
   struct Entry {
      std::string agent;
      std::string interface;
      std::optional< Value > value = {};   // the last valid one
      DatabaseFile::FieldsPtr fields = {}; // the same
      std::string wrong = {};              // with the present one; else empty
      std::string notPublished = {};       // the last valid one, and why; else empty
      std::string told = {};
      U64 seen = 0;
   };
   struct Lease {
      std::set< std::string > keys; // that name it
      std::optional< bool > exists;
   };

   static Value valueOf( Settings::Fields const & fields );
   Entry & entryOf( std::string const & key );
   void leaseOf( std::string const & key, std::string const & before, std::string const & now );
   void publish( std::string const & key, Entry & entry );
   void retry();
   void tell( std::string const & key, Entry & entry );
   std::string whyNotActive( Entry const & entry ) const;

   Publications & publications_;
   DatabaseFile & file_;
   Rejected rejected_;
   LeaseWanted leaseWanted_;
   std::map< std::string, Entry > entries_; // by key
   std::map< std::string, Lease > leases_;  // by key
   std::set< std::string > refused_;        // for want of memory
   U64 generation_ = 0;
};

} // namespace Valend
