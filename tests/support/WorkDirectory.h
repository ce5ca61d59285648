// A temporary directory of one test, removed when it ends.
#pragma once

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>
#include <stdexcept>
#include <string>

namespace Valen::Test {

// Its name is unique, so that tests can run side by side. Other users can read it, as the daemon's
// clients must.
class WorkDirectory {
 public:
   WorkDirectory() : path_( ::testing::TempDir() + "valen-XXXXXX" ) {
      if ( !::mkdtemp( path_.data() ) ) {
         throw std::runtime_error( "mkdtemp " + path_ + ": " + std::strerror( errno ) );
      }
      std::filesystem::permissions( path_, std::filesystem::perms( 0755 ) );
   }
   ~WorkDirectory() {
      std::error_code ignored;
      std::filesystem::remove_all( path_, ignored );
   }
   WorkDirectory( WorkDirectory const & ) = delete;
   WorkDirectory & operator=( WorkDirectory const & ) = delete;

   std::string const & path() const { return path_; } // without a "/" at the end
   std::string operator/( std::string const & name ) const { return path_ + "/" + name; }

   std::string content( std::string const & name ) const {
      std::stringstream content;
      content << std::ifstream( *this / name, std::ios::binary ).rdbuf();
      return content.str();
   }
   // Writes a file, and creates the directories above it.
   void write( std::string const & name, std::string const & content ) const {
      std::filesystem::create_directories( std::filesystem::path( *this / name ).parent_path() );
      std::ofstream( *this / name, std::ios::binary ) << content;
   }
   void directory( std::string const & name ) const {
      std::filesystem::create_directories( *this / name );
   }
   void link( std::string const & target, std::string const & name ) const {
      std::filesystem::create_symlink( target, *this / name );
   }
   void remove( std::string const & name ) const { std::filesystem::remove_all( *this / name ); }
   bool has( std::string const & name ) const { return std::filesystem::exists( *this / name ); }

 private:
   std::string path_;
};

} // namespace Valen::Test
