// The frames that agents have published to be kept until they are withdrawn, in a file of the state
// directory, "published", so that they outlive the agent. It is JSON: a list of the API's messages,
// each with agent, interface and frames in hexadecimal.
//
// Nothing here ever throws: what goes wrong is said when it comes and when it goes.
#pragma once

#include "valend/configuration/Publications.h"

namespace Valend {

class PublishedFile {
 public:
   // Nothing is kept when `directory` is empty.
   explicit PublishedFile( std::string const & directory )
       : path_( directory.empty() ? "" : directory + "/published" ) {}

   // What an agent before this one kept. A file that makes no sense becomes "published.damaged".
   std::vector< Publications::Message > read() const;
   // Writes those of `messages` that are kept, if they are not what was written last.
   void write( std::vector< Publications::Message > const & messages );

   // Why they would not outlive the agent; empty when they would.
   std::string const & trouble() const noexcept { return trouble_; }

 private:
   std::string const path_;
   std::string written_;
   std::string trouble_;
};

} // namespace Valend
