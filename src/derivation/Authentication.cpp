#include "derivation/Authentication.h"

namespace Derivation {

std::string authenticatedWith( std::size_t digestBytes ) {
   std::string const text = "authenticated with ";
   switch ( digestBytes ) {
   case 16:
      return text + "MD5";
   case 20:
      return text + "HMAC-SHA-1";
   case 32:
      return text + "HMAC-SHA-256";
   case 48:
      return text + "HMAC-SHA-384";
   case 64:
      return text + "HMAC-SHA-512";
   default:
      return text + "an unknown algorithm";
   }
}

} // namespace Derivation
