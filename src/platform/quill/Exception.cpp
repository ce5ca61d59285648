#include "platform/quill/Exception.h"

#include <atomic>
#include <cerrno>

namespace Quill {

namespace {

// Exceptions are also made in other threads than the loop's.
thread_local Expect const * innermost = nullptr;
std::atomic< U64 > unexpected = 0;

} // namespace

Exception::Exception( ExceptionId id, std::string text )
    : text_( std::move( text ) ), id_( id ), expected_( Expect::isExpected( id ) ) {
   if ( !expected_ ) {
      ++unexpected;
   }
}

ErrnoException::ErrnoException( std::string text, int number )
    : Exception( ExceptionId::errnoFailure, std::move( text ) ), number_( number ) {
   errno = number; // building the text may have changed it
}

Expect::Expect( U32 exceptionId ) noexcept : exceptionId_( exceptionId ), outer_( innermost ) {
   innermost = this;
}

Expect::~Expect() {
   innermost = outer_;
}

bool Expect::isExpected( ExceptionId id ) noexcept {
   for ( auto const * scope = innermost; scope; scope = scope->outer_ ) {
      if ( scope->exceptionId_ == static_cast< U32 >( id ) ) {
         return true;
      }
   }
   return false;
}

U64 unexpectedExceptions() noexcept {
   return unexpected;
}

} // namespace Quill
