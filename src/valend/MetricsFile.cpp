#include "valend/MetricsFile.h"

#include "linux/Fd.h"
#include "valend/Log.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

namespace Valend {

MetricsFile::MetricsFile( std::string path, std::function< std::string() > text,
                          Quill::Ptr< Gantry::TaskScheduler > scheduler )
    : path_( std::move( path ) ), text_( std::move( text ) ),
      timer_( std::move( scheduler ), "metricsFile", [ this ] { write(); } ) {
   touch();
}

MetricsFile::~MetricsFile() {
   if ( !path_.empty() ) {
      ::unlink( path_.c_str() );
   }
}

void MetricsFile::touch() {
   if ( !path_.empty() && !soon_ ) {
      soon_ = true;
      timer_.start( soon );
   }
}

void MetricsFile::write() {
   soon_ = false;
   timer_.start( period );
   auto const trouble = tryWrite( text_() );
   if ( trouble == trouble_ ) {
      return;
   }
   trouble_ = trouble;
   trouble_.empty() ? log( LogLevel::notice, "the metrics file is written again" )
                    : log( LogLevel::error, "the metrics file is not written: " + trouble_ );
}

// To a file beside it, which then takes its place. The collector must not see that one: it takes
// names that end in ".prom".
std::string MetricsFile::tryWrite( std::string const & text ) const {
   auto const beside = path_ + ".new";
   auto const trouble = [ & ]( std::string const & path ) {
      auto const number = errno;
      ::unlink( beside.c_str() );
      return path + ": " + Valen::Linux::errorText( number );
   };
   Valen::Linux::Fd file(
      ::open( beside.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644 ) );
   if ( !file ) {
      return trouble( beside );
   }
   auto const written = ::write( file.get(), text.data(), text.size() );
   if ( written != static_cast< ssize_t >( text.size() ) ) {
      errno = written < 0 ? errno : ENOSPC;
      return trouble( beside );
   }
   file.close();
   return ::rename( beside.c_str(), path_.c_str() ) < 0 ? trouble( path_ ) : "";
}

} // namespace Valend
