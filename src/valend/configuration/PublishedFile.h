// Saves the frames that agents have published with lifetime "kept" in the file "published" of the state
// directory, so that they survive a restart. The file is a JSON list of messages, each with agent,
// interface and frames in hexadecimal.
//
// No function throws. While the file cannot be written, the condition "published-frames" is raised, and
// every later change retries.
#pragma once

#include "valend/base/Conditions.h"
#include "valend/configuration/Publications.h"

namespace Valend {

class PublishedFile {
 public:
   // Saves nothing when `directory` is empty. `conditions` must outlive this.
   PublishedFile( std::string const & directory, Conditions & conditions )
       : path_( directory.empty() ? "" : directory + "/published" ),
         condition_( conditions, "published-frames" ) {}

   // The messages that the previous run saved. A damaged file is renamed to "published.damaged", and
   // the error is logged.
   std::vector< Publications::Message > read() const;

   // Saves those of `messages` that are kept, unless the file has them already.
   void write( std::vector< Publications::Message > const & messages );

 private:
   std::string const path_;
   std::string written_; // the content of the file, as far as it was written by this run
   Condition condition_;
};

} // namespace Valend
