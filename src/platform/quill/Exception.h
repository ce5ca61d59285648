// The framework's exceptions. what() is the text that callers and tests rely on. Any thread may throw them.
#pragma once

#include "platform/quill/Int.h"

#include <exception>
#include <string>

namespace Quill {

// Ids by which Quill::Expect names exceptions.
enum class ExceptionId : U32 {
   nameInUse = 11,
   range = 13,
   nullParameter = 17,
   errnoFailure = 29,
};

class Exception : public std::exception {
 public:
   Exception( ExceptionId id, std::string text );

   char const * what() const noexcept override { return text_.c_str(); }
   std::string const & text() const noexcept { return text_; }
   ExceptionId id() const noexcept { return id_; }
   // Whether it was made inside the scope of a Quill::Expect for its id.
   bool expected() const noexcept { return expected_; }

 private:
   std::string text_;
   ExceptionId id_;
   bool expected_;
};

// A member of that name exists and was built from other parameters. It is left unchanged.
class NameInUseException : public Exception {
 public:
   explicit NameInUseException( std::string text )
       : Exception( ExceptionId::nameInUse, std::move( text ) ) {}
};

// A value is outside its type's range. The target is left unchanged.
class RangeException : public Exception {
 public:
   explicit RangeException( std::string text )
       : Exception( ExceptionId::range, std::move( text ) ) {}
};

// A null handle was passed to a mutator that requires one.
class NullParameterException : public Exception {
 public:
   explicit NullParameterException( std::string text )
       : Exception( ExceptionId::nullParameter, std::move( text ) ) {}
};

// A failed system call. `errno` keeps the value that the call left.
class ErrnoException : public Exception {
 public:
   // `text` says which call failed on which object; `number` is its errno.
   ErrnoException( std::string text, int number );

   int number() const noexcept { return number_; }

 private:
   int number_;
};

// While it exists, exceptions of one id are expected: they are part of the caller's plan and not
// counted as unexpected. Scopes nest, and concern their own thread.
class Expect {
 public:
   explicit Expect( U32 exceptionId ) noexcept;
   explicit Expect( ExceptionId id ) noexcept : Expect( static_cast< U32 >( id ) ) {}
   ~Expect();
   Expect( Expect const & ) = delete;
   Expect & operator=( Expect const & ) = delete;

   static bool isExpected( ExceptionId id ) noexcept;

 private:
   U32 const exceptionId_;
   Expect const * const outer_;
};

// How many framework exceptions were made outside a matching Expect since the process started.
U64 unexpectedExceptions() noexcept;

} // namespace Quill
