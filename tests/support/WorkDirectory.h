// A folder of the test's own.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>
#include <string>

namespace Valend::Test {

class WorkDirectory {
 public:
   WorkDirectory() {
      std::string path = ::testing::TempDir() + "valend-XXXXXX";
      if ( !::mkdtemp( path.data() ) ) {
         throw std::runtime_error( "mkdtemp " + path );
      }
      path_ = path;
   }
   ~WorkDirectory() {
      std::error_code ignored;
      std::filesystem::remove_all( path_, ignored );
   }
   WorkDirectory( WorkDirectory const & ) = delete;
   WorkDirectory & operator=( WorkDirectory const & ) = delete;

   std::string operator/( std::string const & name ) const { return path_ + "/" + name; }

   std::string content( std::string const & name ) const {
      std::stringstream content;
      content << std::ifstream( *this / name, std::ios::binary ).rdbuf();
      return content.str();
   }
   // Makes the folders on the way.
   void write( std::string const & name, std::string const & content ) const {
      std::filesystem::create_directories( std::filesystem::path( *this / name ).parent_path() );
      std::ofstream( *this / name, std::ios::binary ) << content;
   }
   void folder( std::string const & name ) const {
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

} // namespace Valend::Test
