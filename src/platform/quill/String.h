// Quill::String: an immutable, shared, reference-counted byte string; and the interned names that
// serve as keys.
#pragma once

#include "platform/quill/Int.h"

#include <ostream>
#include <string>
#include <string_view>
#include <utility>

namespace Quill {

// The shared bytes behind strings and names: the header, then the bytes. Made and freed by
// String.cpp alone.
struct StringRep {
   mutable U32 refs;
   U32 length : 31;
   U32 interned : 1; // listed in the table of names while it exists
   mutable U64 hash; // 0 until first used; that of an interned one is set when it is made

   char const * bytes() const noexcept { return reinterpret_cast< char const * >( this + 1 ); }
   std::string_view view() const noexcept { return { bytes(), length }; }
};

// A counted reference to a StringRep; null stands for the empty string.
class StringHandle {
 public:
   std::string_view view() const noexcept { return rep_ ? rep_->view() : std::string_view(); }
   bool empty() const noexcept { return !rep_; }
   U32 length() const noexcept { return rep_ ? rep_->length : 0; }

 protected:
   constexpr StringHandle() noexcept = default;
   explicit StringHandle( StringRep const * adopted ) noexcept : rep_( adopted ) {}
   StringHandle( StringHandle const & other ) noexcept : rep_( other.rep_ ) {
      if ( rep_ ) {
         ++rep_->refs;
      }
   }
   StringHandle( StringHandle && other ) noexcept : rep_( std::exchange( other.rep_, nullptr ) ) {}
   StringHandle & operator=( StringHandle const & other ) noexcept {
      StringHandle copy( other );
      std::swap( rep_, copy.rep_ );
      return *this;
   }
   StringHandle & operator=( StringHandle && other ) noexcept {
      std::swap( rep_, other.rep_ );
      return *this;
   }
   ~StringHandle() {
      if ( rep_ && --rep_->refs == 0 ) {
         dispose( rep_ );
      }
   }

   static StringRep const * newRep( std::string_view a, std::string_view b );
   static StringRep const * internedRep( std::string_view bytes );
   static StringRep const * internedRep( StringHandle const & bytes );
   static U64 hashOf( std::string_view bytes ) noexcept;

   StringRep const * rep_ = nullptr;

 private:
   static void dispose( StringRep const * rep ) noexcept;
};

class String : public StringHandle {
 public:
   constexpr String() noexcept = default;
   String( std::string_view bytes ) : StringHandle( newRep( bytes, {} ) ) {}    // NOLINT
   String( char const * text ) : String( std::string_view( text ) ) {}          // NOLINT
   String( std::string const & bytes ) : String( std::string_view( bytes ) ) {} // NOLINT

   U64 hash() const noexcept;
   std::string stdString() const { return std::string( view() ); }

   String & operator+=( String const & other ) { return *this = *this + other; }

   friend String operator+( String const & a, String const & b ) {
      return String( newRep( a.view(), b.view() ) );
   }
   friend bool operator==( String const & a, String const & b ) noexcept {
      return a.rep_ == b.rep_ || a.view() == b.view();
   }
   friend bool operator<( String const & a, String const & b ) noexcept {
      return a.view() < b.view();
   }
   friend std::ostream & operator<<( std::ostream & stream, String const & string ) {
      return stream << string.view();
   }

 private:
   friend class Interned;
   explicit String( StringRep const * adopted ) noexcept : StringHandle( adopted ) {}
};

// A one-word handle of an interned string: equal names share their bytes, so equality is identity
// and the hash is computed once. The bytes are freed with the last handle.
class Interned : public StringHandle {
 public:
   U64 hash() const noexcept { return rep_ ? rep_->hash : 0; }
   // The same for equal names while one of them exists, different for different ones.
   void const * identity() const noexcept { return rep_; }
   String stringValue() const noexcept; // shares the bytes
   std::string stdString() const { return std::string( view() ); }

 protected:
   constexpr Interned() noexcept = default;
   explicit Interned( std::string_view bytes ) : StringHandle( internedRep( bytes ) ) {}
   explicit Interned( String const & bytes ) : StringHandle( internedRep( bytes ) ) {}

   bool same( Interned const & other ) const noexcept { return rep_ == other.rep_; }
};

// A kind of name; `Self` is the derived class, so that names of two kinds do not mix.
template < class Self > class NameOf : public Interned {
 public:
   friend bool operator==( Self const & a, Self const & b ) noexcept { return a.same( b ); }
   friend bool operator<( Self const & a, Self const & b ) noexcept { return a.view() < b.view(); }
   friend std::ostream & operator<<( std::ostream & stream, Self const & name ) {
      return stream << name.view();
   }

 protected:
   using Interned::Interned;
};

// The key of a directory entry: the name of an agent, of a message directory, of a device.
class Name : public NameOf< Name > {
 public:
   constexpr Name() noexcept = default;
   Name( std::string_view bytes ) : NameOf( bytes ) {}                    // NOLINT
   Name( char const * text ) : Name( std::string_view( text ) ) {}        // NOLINT
   Name( std::string const & text ) : Name( std::string_view( text ) ) {} // NOLINT
   Name( String const & bytes ) : NameOf( bytes ) {}                      // NOLINT
};

// Throws Quill::RangeException with `text` when `bytes` is longer than `maxLength`.
std::string_view requireLength( std::string_view bytes, std::size_t maxLength, char const * text );

} // namespace Quill
