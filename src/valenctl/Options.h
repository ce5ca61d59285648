// The options that all commands share.
#pragma once

#include <chrono>
#include <string>

namespace CLI {
class App;
} // namespace CLI

namespace Valenctl {

struct Options {
   Options();

   std::string socket;         // valend's
   double timeoutSeconds = 10; // for an answer; 0 waits indefinitely
   bool json = false;          // print answers as JSON

   std::chrono::milliseconds timeout() const;
};

// Adds the options to `app`, bound to `options`, which must outlive it.
void addOptions( CLI::App & app, Options & options );

} // namespace Valenctl
