// The documents describe every setting of the process, with its default.
#include "settings/ProcessSettings.h"

#include <fstream>
#include <gtest/gtest.h>
#include <iterator>

namespace Settings {
namespace {

std::string contentOf( std::string const & file ) {
   std::ifstream stream( file );
   EXPECT_TRUE( stream ) << file;
   return { std::istreambuf_iterator< char >( stream ), {} };
}

// The text from `begin` to the next `end`; empty when `begin` is not there.
std::string section( std::string const & text, std::string const & begin,
                     std::string const & end ) {
   auto const from = text.find( begin );
   return from == text.npos ? "" : text.substr( from, text.find( end, from + 1 ) - from );
}

bool contains( std::string const & text, std::string_view part ) {
   return text.find( part ) != text.npos;
}

bool isOfFiles( ProcessSetting const & setting ) {
   return setting.inFiles();
}

// The last part of the name, which is the key in its mapping.
std::string keyOf( ProcessSetting const & setting ) {
   std::string const name( setting.name );
   return name.substr( name.rfind( '.' ) + 1 );
}

TEST( DocumentsTest, TheConfigurationDocumentDescribesEverySettingWithItsDefault ) {
   auto const text = contentOf( DOCS "configuration.md" );
   for ( auto const & setting : processSettings ) {
      if ( setting.onCommandLine() ) {
         EXPECT_TRUE( contains( text, "`--" + std::string( setting.option ) + "`" ) )
            << "docs/configuration.md has no option --" << setting.option;
      }
      auto const row = section( text, "`" + keyOf( setting ) + "` |", "\n" );
      if ( isOfFiles( setting ) ) {
         EXPECT_FALSE( row.empty() ) << "docs/configuration.md has no row for " << setting.name;
      }
      auto const shown = setting.shownDefault().empty() ? "none" : setting.shownDefault();
      auto const described = isOfFiles( setting )
                                ? contains( row, shown )
                                : contains( text, "`--" + std::string( setting.option ) +
                                                     "` (default `" + std::string( shown ) + "`)" );
      EXPECT_TRUE( described ) << "docs/configuration.md does not give the default of "
                               << setting.name << ": \"" << shown << "\"";
   }
}

TEST( DocumentsTest, TheConfigurationDocumentNamesTheSettingsThatTakeEffectAtTheNextStart ) {
   auto const text =
      section( contentOf( DOCS "configuration.md" ), "take effect at the next start", "\n\n" );
   for ( auto const & setting : processSettings ) {
      if ( isOfFiles( setting ) ) {
         EXPECT_EQ( contains( text, "`" + std::string( setting.name ) + "`" ),
                    setting.takesEffect == TakesEffect::atNextStart )
            << setting.name << " in: " << text;
      }
   }
}

TEST( DocumentsTest, TheManPageOfTheDaemonDescribesEveryOptionWithItsDefault ) {
   auto const page = contentOf( MAN_PAGES "valend.8" );
   for ( auto const & setting : processSettings ) {
      if ( !setting.onCommandLine() ) {
         EXPECT_FALSE( contains( page, setting.help ) ) << setting.name;
         continue;
      }
      auto const option = "Fl -" + std::string( setting.option ) + " Ar ";
      EXPECT_TRUE( contains( page, ".Op " + option ) ) << "synopsis of " << setting.option;
      auto const item = section( page, ".It " + option, "\n.It " );
      EXPECT_TRUE( contains( item, setting.help ) ) << setting.option;
      EXPECT_TRUE( contains( item, setting.shownDefault() ) ) << item;
   }
}

TEST( DocumentsTest, TheManPageOfTheConfigurationDescribesEveryKeyWithItsDefault ) {
   auto const page = contentOf( MAN_PAGES "valen.yaml.5" );
   for ( auto const & setting : processSettings ) {
      auto const item = section( page, ".It Ic " + keyOf( setting ) + " : Ar ", "\n.It " );
      EXPECT_EQ( contains( item, setting.help ), isOfFiles( setting ) ) << setting.name;
      EXPECT_EQ( contains( page, ".Ic " + std::string( setting.name ) + "\n" ),
                 isOfFiles( setting ) && setting.takesEffect == TakesEffect::atNextStart )
         << setting.name;
      if ( isOfFiles( setting ) ) {
         EXPECT_TRUE( contains( item, setting.shownDefault() ) ) << item;
      }
   }
}

} // namespace
} // namespace Settings
