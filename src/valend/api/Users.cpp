#include "valend/api/Users.h"

#include "linux/Fd.h"

#include <charconv>
#include <cstdio>
#include <fcntl.h>
#include <memory>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace Valend {

using Valen::Linux::Fd;

namespace {

constexpr U32 noLogin = ~0u; // of a process that stems from no session

} // namespace

std::string userName( U32 uid ) {
   std::unique_ptr< FILE, int ( * )( FILE * ) > const users( std::fopen( "/etc/passwd", "re" ),
                                                             &std::fclose );
   std::vector< char > buffer( 4096 );
   passwd entry{};
   passwd * found = nullptr;
   while ( users &&
           ::fgetpwent_r( users.get(), &entry, buffer.data(), buffer.size(), &found ) == 0 ) {
      if ( entry.pw_uid == uid ) {
         return entry.pw_name;
      }
   }
   return Varlink::Caller{ uid, 0, {} }.name();
}

std::optional< U32 > loginOf( Varlink::Caller const & caller, std::string const & proc ) {
   // One directory for both: the process may end, and its number be given to another.
   Fd const process( ::open( ( proc + "/" + std::to_string( caller.pid ) ).c_str(),
                             O_PATH | O_DIRECTORY | O_CLOEXEC ) );
   struct stat status {};
   if ( !process || ::fstat( process.get(), &status ) != 0 || status.st_uid != caller.uid ) {
      return std::nullopt;
   }
   Fd const file( ::openat( process.get(), "loginuid", O_RDONLY | O_CLOEXEC ) );
   char text[ 16 ];
   auto const size = file ? ::read( file.get(), text, sizeof text ) : -1;
   U32 login = noLogin;
   auto const end = text + ( size < 0 ? 0 : size );
   return std::from_chars( text, end, login ).ec == std::errc() && login != noLogin
             ? std::optional( login )
             : std::nullopt;
}

std::string loginBehind( Varlink::Caller const & caller, std::string const & proc ) {
   auto const login = loginOf( caller, proc );
   return login && *login != caller.uid ? userName( *login ) : "";
}

} // namespace Valend
