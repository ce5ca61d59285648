#include "valend/shutdown/Journal.h"

#include "settings/Counted.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <fstream>
#include <time.h>

namespace Valend {

using Valen::Linux::errorText;

namespace {

// The first line of every journal.
constexpr char const * header = "valen journal of shutdowns, 1\n";

// How many lines a shutdown writes after that of `phase`, at most, without its being resumed.
constexpr std::size_t linesAfter( Phase phase ) {
   switch ( phase ) {
   case Phase::requested:
   case Phase::waiting:
      return 7;
   case Phase::sending:
      return 6;
   case Phase::held:
      return 5;
   case Phase::heldToDeadline:
      return 4;
   case Phase::flushing:
      return 3;
   case Phase::settingDown:
      return 2;
   case Phase::settingUp:
      return 1;
   case Phase::ended:
      break;
   }
   return 0;
}

// Bytes for the lines after `line`, which get longer: the agents and the identities of the muted
// speakers are added when the frames are sent, the speakers that were muted at the end, and what did not go as expected.
std::size_t roomAfter( JournalEntry const & entry, std::string const & line ) {
   std::size_t growth = entry.phase < Phase::held ? 3 * 1024 : 256;
   for ( auto const & agent : entry.record.agents ) {
      for ( auto const & goodbye : agent.goodbyes ) {
         growth += 80 + goodbye.protocol.size() + goodbye.speaker.size();
      }
   }
   return linesAfter( entry.phase ) * ( line.size() + growth );
}

} // namespace

Journal::Machine Journal::Machine::real() {
   std::string id;
   std::getline( std::ifstream( "/proc/sys/kernel/random/boot_id" ), id );
   return { id, [] {
              timespec now{};
              ::clock_gettime( CLOCK_BOOTTIME, &now );
              return std::chrono::seconds( now.tv_sec ) + std::chrono::nanoseconds( now.tv_nsec );
           } };
}

Journal::Journal( StateDirectory & directory, Quill::Ptr< Gantry::TaskScheduler > scheduler,
                  Machine machine, Conditions & conditions, Damaged damaged )
    : directory_( directory ), machine_( std::move( machine ) ),
      condition_( conditions, "journal" ), damaged_( std::move( damaged ) ),
      file_( directory, "shutdowns", header ),
      timer_( std::move( scheduler ), "journal", [ this ] { retry(); } ) {}

Journal::~Journal() {
   if ( !owed_.empty() ) {
      writeOwed();
   }
}

// --- Reading -------------------------------------------------------------------------------------

Journal::Content Journal::read() {
   Content content;
   if ( auto const why = directory_.open(); !why.empty() ) {
      report( why );
      return content;
   }
   JournalReading reading;
   bool intact = readFile( ".1", reading );
   intact = readFile( "", reading ) && intact;
   for ( auto const & [ id, entry ] : reading.entries() ) {
      lastId_ = std::max( lastId_, id );
      if ( entry.phase != Phase::ended ) {
         ( reading.newest( entry ) ? content.unfinished : content.superseded ).push_back( entry );
         auto line = lineOf( entry ) + '\n';
         auto const room = roomAfter( entry, line );
         begunIs( id, std::move( line ), room );
      }
   }
   content.history = reading.history();
   if ( !intact ) {
      copyUndamaged( reading );
   }
   retry();
   return content;
}

// The damaged file was set aside.
void Journal::copyUndamaged( JournalReading const & reading ) {
   for ( auto const id : reading.ended() ) {
      owed_.add(
         { id, lineOf( reading.entries().at( id ) ) + '\n', 0, OwedLines::Kind::optional } );
   }
   for ( auto & [ id, begun ] : begun_ ) {
      owed_.add( { id, begun.line, begun.roomAfter, OwedLines::Kind::needed } );
   }
}

// Returns whether the file is undamaged. One that does not exist is, and one whose header could not be written.
bool Journal::readFile( char const * suffix, JournalReading & reading ) {
   auto const content = file_.content( suffix, readLimit );
   if ( content ? content->empty() : errno == ENOENT ) {
      return true;
   }
   auto const path = file_.path( suffix );
   std::string why;
   if ( !content ) {
      why = "cannot read " + path + ": " + errorText( errno );
   } else if ( !content->starts_with( file_.header() ) ) {
      why = path + " is not a journal of shutdowns";
   } else if ( auto const lines = reading.addLines( content->substr( file_.header().size() ) ) ) {
      why = path + " has " + Settings::counted( lines, "damaged line" );
   }
   if ( !why.empty() ) {
      setAside( suffix, why );
   }
   return why.empty();
}

void Journal::setAside( char const * suffix, std::string const & why ) {
   auto const aside = std::string( suffix ) + ".damaged";
   auto const number = file_.rename( suffix, aside.c_str() );
   auto const path = file_.path( aside.c_str() );
   damaged_( why + ( number ? "; cannot move it to " + path + ": " + errorText( number )
                            : "; moved to " + path ) );
}

// --- Writing -------------------------------------------------------------------------------------

void Journal::write( JournalEntry & entry ) noexcept {
   try {
      addLine( entry );
   } catch ( std::exception const & e ) { // out of memory
      report( std::string( "cannot write " ) + e.what() );
   }
}

void Journal::addLine( JournalEntry & entry ) {
   if ( entry.id == 0 ) {
      auto const now = std::chrono::system_clock::now().time_since_epoch();
      lastId_ = std::max( lastId_ + 1, static_cast< U64 >( now.count() ) );
      entry.id = lastId_;
   }
   entry.bootId = machine_.bootId;
   if ( directory_.path().empty() ) {
      return;
   }
   auto line = lineOf( entry ) + '\n';
   auto const room = roomAfter( entry, line );
   auto const kind = begun_.count( entry.id ) ? OwedLines::Kind::needed : OwedLines::Kind::optional;
   owed_.add( { entry.id, std::move( line ), room, kind } );
   writeOwed();
}

// Also reserves room for those that have begun, if there was none.
void Journal::retry() {
   auto const why = file_.reserve( room_ );
   if ( why.empty() || !owed_.empty() ) {
      writeOwed();
   } else {
      report( why );
   }
}

// Of a shutdown that has begun, the room that is reserved for it takes the line even if the disk is full.
void Journal::writeOwed() {
   std::string failed;
   for ( auto line = owed_.begin(); line != owed_.end(); ) {
      if ( !failed.empty() && line->kind == OwedLines::Kind::optional ) {
         ++line; // it would fail as well
         continue;
      }
      auto const why = writeLine( *line );
      failed = why.empty() ? failed : why;
      line = why.empty() ? owed_.remove( line ) : std::next( line );
   }
   if ( failed.empty() ) {
      failed = file_.bytes() > rotateAt_ ? rotate() : file_.reserve( room_ );
   }
   if ( begun_.empty() ) {
      file_.release( 0 );
   }
   report( failed );
}

std::string Journal::writeLine( OwedLines::Line const & line ) {
   auto const found = begun_.find( line.id );
   auto const others = room_ - ( found == begun_.end() ? 0 : found->second.roomAfter );
   auto why = file_.reserve( line.text.size() + others + line.roomAfter );
   bool const reserved = found != begun_.end() && file_.fits( line.text.size() );
   if ( why.empty() || reserved ) {
      why = file_.append( line.text );
   }
   if ( why.empty() ) {
      begunIs( line.id, line.text, line.roomAfter );
   }
   return why;
}

// One that needs no more room has ended.
void Journal::begunIs( U64 id, std::string line, std::size_t roomAfter ) {
   begunDel( id );
   if ( roomAfter ) {
      room_ += roomAfter;
      begun_[ id ] = { std::move( line ), roomAfter };
   }
}

void Journal::begunDel( U64 id ) {
   if ( auto const found = begun_.find( id ); found != begun_.end() ) {
      room_ -= found->second.roomAfter;
      begun_.erase( found );
   }
}

// Begins a new file, with the shutdowns that are running. If that fails, the old one grows a little first.
std::string Journal::rotate() {
   std::string lines;
   for ( auto const & [ id, begun ] : begun_ ) {
      lines += begun.line;
   }
   auto const why = file_.replace( lines, room_ );
   rotateAt_ = why.empty() ? fileLimit + 2 * file_.bytes() : file_.bytes() + fileLimit / 8;
   return why;
}

// `why`: what failed; empty when nothing did.
void Journal::report( std::string const & why ) {
   if ( why.empty() ) {
      condition_.clear();
      pause_.reset();
      return timer_.stop();
   }
   condition_.raise( why + "; a shutdown in progress would be lost on restart" );
   if ( !timer_.running() && !directory_.path().empty() ) {
      timer_.start( pause_.take() );
   }
}

} // namespace Valend
