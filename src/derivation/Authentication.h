// Messages with a digest: only who has the key can make another one.
#pragma once

#include <cstddef>
#include <string>

namespace Derivation {

// "authenticated with MD5", for the algorithm that makes a digest of that many bytes.
std::string authenticatedWith( std::size_t digestBytes );

} // namespace Derivation
