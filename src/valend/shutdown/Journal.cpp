#include "valend/shutdown/Journal.h"

#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sys/file.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

namespace Valend {

using Valen::Linux::errorText;
using Valen::Linux::Fd;
using Phase = JournalEntry::Phase;

namespace {

// The first line of every journal.
constexpr std::string_view header = "valen journal of shutdowns, 1\n";

// The whole file. Nothing, with errno set, when it cannot be read or is too large.
std::optional< std::string > contentOf( std::string const & path, std::size_t limit ) {
   Fd const fd( ::open( path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK ) );
   struct stat status {};
   if ( !fd || ::fstat( fd.get(), &status ) < 0 ) {
      return std::nullopt;
   }
   if ( !S_ISREG( status.st_mode ) || static_cast< std::size_t >( status.st_size ) > limit ) {
      errno = EFBIG;
      return std::nullopt;
   }
   std::string content( static_cast< std::size_t >( status.st_size ), '\0' );
   std::size_t got = 0;
   while ( got < content.size() ) {
      auto const count = ::read( fd.get(), content.data() + got, content.size() - got );
      if ( count < 0 ) {
         return std::nullopt;
      }
      if ( count == 0 ) {
         break;
      }
      got += static_cast< std::size_t >( count );
   }
   content.resize( got );
   return content;
}

} // namespace

// What was read so far, of all files.
struct Journal::Reading {
   std::map< U64, JournalEntry > entries; // the last line of each
   std::vector< U64 > ended;              // in the order of their ends
   std::size_t badLines = 0;              // of the file that is being read

   void add( JournalEntry entry ) {
      auto const [ place, added ] = entries.try_emplace( entry.id );
      bool const wasEnded = !added && place->second.phase == Phase::ended;
      if ( wasEnded ) {
         return; // carried over into the next file
      }
      if ( entry.phase == Phase::ended ) {
         ended.push_back( entry.id );
      }
      place->second = std::move( entry );
   }
};

Journal::Machine Journal::Machine::real() {
   std::string id;
   std::getline( std::ifstream( "/proc/sys/kernel/random/boot_id" ), id );
   return { id, [] {
              timespec now{};
              ::clock_gettime( CLOCK_BOOTTIME, &now );
              return std::chrono::seconds( now.tv_sec ) + std::chrono::nanoseconds( now.tv_nsec );
           } };
}

Journal::Journal( std::string directory, Machine machine, Notice notice )
    : directory_( std::move( directory ) ), machine_( std::move( machine ) ),
      notice_( std::move( notice ) ) {}

std::string Journal::path( char const * suffix ) const {
   return directory_ + "/shutdowns" + suffix;
}

// --- Reading -------------------------------------------------------------------------------------

Journal::Content Journal::read() {
   Content content;
   if ( !openDirectory() ) {
      return content;
   }
   Reading reading;
   bool whole = readFile( path( ".1" ), reading );
   whole = readFile( path(), reading ) && whole;
   for ( auto & [ id, entry ] : reading.entries ) {
      lastId_ = std::max( lastId_, id );
      if ( entry.phase == Phase::ended ) {
         continue;
      }
      if ( entry.bootId == machine_.bootId ) {
         content.running.push_back( entry );
         running_[ id ] = lineOf( entry ) + '\n';
      } else {
         cutShort( entry );
         reading.ended.push_back( id );
      }
   }
   auto & ended = reading.ended;
   ended.erase( ended.begin(), ended.end() - static_cast< std::ptrdiff_t >(
                                                std::min( ended.size(), historyLimit ) ) );
   for ( auto const id : ended ) {
      content.history.push_back( reading.entries.at( id ).record );
   }
   openFile();
   if ( !whole ) {
      carryOver( reading );
   }
   return content;
}

// The links were reset with the machine: there is nothing left to do.
void Journal::cutShort( JournalEntry & entry ) {
   entry.phase = Phase::ended;
   entry.record.ending = ShutdownRecord::Ending::rebooted;
   entry.record.resumed = true;
   write( entry );
}

// Writes what was whole of files that were set aside.
void Journal::carryOver( Reading const & reading ) {
   for ( auto const id : reading.ended ) {
      append( lineOf( reading.entries.at( id ) ) + '\n' );
   }
   for ( auto const & [ id, line ] : running_ ) {
      append( line );
   }
}

bool Journal::openDirectory() {
   if ( lock_ ) {
      return true;
   }
   if ( directory_.empty() ) {
      troubleIs( "there is no state directory" );
      return false;
   }
   std::error_code code;
   std::filesystem::create_directories( directory_, code );
   Fd directory( ::open( directory_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC ) );
   if ( !directory ) {
      troubleIs( directory_ + ": " + ( code ? code.message() : errorText( errno ) ) );
      return false;
   }
   if ( ::flock( directory.get(), LOCK_EX | LOCK_NB ) < 0 ) {
      troubleIs( directory_ +
                 ( errno == EWOULDBLOCK ? " is another agent's" : ": " + errorText( errno ) ) );
      return false;
   }
   lock_ = std::move( directory );
   return true;
}

// Whether the file is in order or not there. One that is not is set aside.
bool Journal::readFile( std::string const & path, Reading & reading ) {
   auto const content = contentOf( path, readLimit );
   reading.badLines = 0;
   if ( !content ) {
      if ( errno == ENOENT ) {
         return true;
      }
      notice_( true, path + " cannot be read: " + errorText( errno ) );
      setAside( path );
      return false;
   }
   std::string_view rest( *content );
   bool const ours = rest.starts_with( header );
   rest.remove_prefix( ours ? header.size() : 0 );
   while ( ours && !rest.empty() ) {
      auto const end = rest.find( '\n' );
      auto const line = rest.substr( 0, end );
      rest.remove_prefix( end == rest.npos ? rest.size() : end + 1 );
      auto entry = end == rest.npos ? std::nullopt : entryIn( line );
      if ( entry ) {
         reading.add( std::move( *entry ) );
      } else {
         ++reading.badLines;
      }
   }
   if ( ours && reading.badLines == 0 ) {
      return true;
   }
   notice_( true, path + ( ours ? ": " + std::to_string( reading.badLines ) +
                                     ( reading.badLines == 1 ? " torn line" : " torn lines" )
                                : " is no journal of shutdowns" ) );
   setAside( path );
   return false;
}

void Journal::setAside( std::string const & path ) {
   auto const aside = path + ".damaged";
   if ( ::rename( path.c_str(), aside.c_str() ) < 0 ) {
      notice_( true, path + " cannot be set aside: " + errorText( errno ) );
   } else {
      notice_( true, path + " was set aside as " + aside );
   }
}

// --- Writing -------------------------------------------------------------------------------------

void Journal::write( JournalEntry & entry ) {
   if ( entry.id == 0 ) {
      auto const now = std::chrono::system_clock::now().time_since_epoch();
      lastId_ = std::max( lastId_ + 1, static_cast< U64 >( now.count() ) );
      entry.id = lastId_;
   }
   entry.bootId = machine_.bootId;
   if ( directory_.empty() ) {
      return;
   }
   auto line = lineOf( entry ) + '\n';
   bool const written = append( line );
   if ( entry.phase == Phase::ended ) {
      running_.erase( entry.id );
   } else {
      running_[ entry.id ] = std::move( line );
   }
   if ( written && bytes_ > fileLimit + 2 * carriedBytes_ ) {
      rotate();
   }
}

// Opens the file, with its header in place.
bool Journal::openFile() {
   if ( file_ ) {
      return true;
   }
   if ( !openDirectory() ) {
      return false;
   }
   Fd file( ::open( path().c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600 ) );
   struct stat status {};
   if ( !file || ::fstat( file.get(), &status ) < 0 ) {
      troubleIs( path() + ": " + errorText( errno ) );
      return false;
   }
   file_ = std::move( file );
   bytes_ = static_cast< std::size_t >( status.st_size );
   return bytes_ > 0 || append( std::string( header ) );
}

// Whether the text is in the file whole; else none of it is.
bool Journal::append( std::string const & text ) {
   if ( !openFile() ) {
      return false;
   }
   auto const written = ::write( file_.get(), text.data(), text.size() );
   if ( written == static_cast< ssize_t >( text.size() ) ) {
      bytes_ += text.size();
      troubleIs( "" );
      return true;
   }
   auto const number = written < 0 ? errno : ENOSPC;
   if ( written > 0 && ::ftruncate( file_.get(), static_cast< off_t >( bytes_ ) ) < 0 ) {
      // A torn line, which the next agent reports.
      [[maybe_unused]] auto const ended = ::write( file_.get(), "\n", 1 );
   }
   file_.close(); // the next line tries it all anew
   troubleIs( path() + ": " + errorText( number ) );
   return false;
}

// A new file, which begins with what must not be lost with the old one.
void Journal::rotate() {
   if ( ::rename( path().c_str(), path( ".1" ).c_str() ) < 0 ) {
      return troubleIs( path() + " cannot be renamed: " + errorText( errno ) );
   }
   file_.close();
   for ( auto const & [ id, line ] : running_ ) {
      if ( !append( line ) ) {
         break;
      }
   }
   carriedBytes_ = bytes_;
}

void Journal::troubleIs( std::string text ) {
   if ( text == trouble_ ) {
      return;
   }
   trouble_ = std::move( text );
   trouble_.empty()
      ? notice_( false, "shutdowns are written down again" )
      : notice_( true, "a shutdown that is under way would not outlive the agent: " + trouble_ );
}

} // namespace Valend
