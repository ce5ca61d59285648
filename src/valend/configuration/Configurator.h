// Applies the configuration, reloads it on request, and knows which configuration is active.
//
// A reload reads and checks the files in another thread, and applies the configuration in slices, so that the loop
// never waits for it. One reload runs at a time. What is requested meanwhile is done by one more that begins
// afterwards, because the files may have been changed in between.
//
// The entities of a database lie over the files (settings/Overlay.h). What changes in them is settled in the same thread,
// and applied in the same slices, but without reading the files.
#pragma once

#include "linux/Worker.h"
#include "platform/gantry/Timer.h"
#include "settings/ConfigFiles.h"
#include "settings/Overlay.h"
#include "valend/base/Conditions.h"
#include "valend/base/Refusal.h"
#include "valend/base/Slices.h"
#include "valend/configuration/ActiveConfiguration.h"

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace Valend {

class Configurator {
 public:
   // The steps that apply a valid configuration, in order.
   using Steps = std::vector< Slices::Step >;
   using Apply = std::function< Steps( PlanPtr const & plan ) >;
   // Reads the configuration, in another thread.
   using Read = std::function< Settings::ConfigResult( std::string const & file ) >;

   // When it raises the condition "configuration-read", because the files are still being read.
   static constexpr std::chrono::seconds readTimeout{ 5 };

   // `file` is read on reload; the settings of `commandLine` override those of the files. The condition "configuration"
   // is raised while the active configuration is not that of the files, because they have errors. `loop` and
   // `conditions` must outlive this.
   Configurator( std::string file, Settings::ProcessConfig commandLine, Conditions & conditions,
                 Valen::Linux::EventLoop & loop, Apply apply, Read read = readFiles );

   // What a reload looks up besides the files, in the same thread. What it returns runs on the loop, before the
   // configuration is applied or rejected. It may use only what it owns.
   void lookUpIs( Valen::Linux::Worker::Job lookUp ) { lookUp_ = std::move( lookUp ); }

   // What has come of the entities of a database.
   struct Layered {
      // Why values are not taken, by key, as far as that has changed; empty: no longer.
      std::vector< std::pair< std::string, std::string > > rejected;
      std::shared_ptr< Settings::Entities const > taken; // that are active; null: as before
      bool ofEntities = false;                           // of a change of them, else of a reload
      std::vector< std::string > changes = {};           // of a change of entities, a line each
   };
   // `layered` is told afterwards, at the start, after a reload and after each change of the entities. Call it before
   // start().
   void layeredIs( std::function< void( Layered const & layered ) > layered ) {
      layered_ = std::move( layered );
   }
   // Begins with these entities, which a previous run had taken. Call it before start().
   void resume( Settings::Entities taken );
   // Applies what has changed in the entities, or `all` as all of them. One call at a time: the next one when
   // layeredIs() was told of this one.
   void entitiesChange( Settings::EntityChanges changes );
   void entitiesReplace( Settings::EntityChanges all );

   // Applies the configuration that valend starts with, in one go. Requires one without errors.
   //   rejected   the errors of the files, if it is not theirs but the last valid one
   void start( Settings::ConfigResult read,
               std::vector< Settings::ConfigError > const & rejected = {} );

   // What a reload has come to.
   struct Outcome {
      U64 number;                         // of the reload; several requests may have the same
      std::vector< std::string > changes; // a line each
      std::optional< Refusal > rejected;  // Errors::configRejected(): the files have errors
   };
   using Done = std::function< void( Outcome const & outcome ) >;

   // Reads the file and its drop-ins again, applies what differs, and calls `done` (may be empty) afterwards. Errors and
   // changes are logged and reported to the service manager.
   void reload( Done done );

   // From the moment at which its application begins.
   ActiveConfiguration const & active() const noexcept { return active_; }
   // That of the files alone; never null.
   ConfigPtr const & files() const noexcept { return files_.config; }

 private:
   struct Files {
      ConfigPtr config;
      SourcesPtr sources;
   };
   struct Layer;
   struct ReadPlan;
   struct Old;

   static Settings::ConfigResult readFiles( std::string const & file );
   static ReadPlan planOf( Files files, Layer & layer, PlanPtr const & before );

   void next();
   void beginReload();
   void readEnded( ReadPlan & read );
   void reject( std::vector< Settings::ConfigError > const & errors );
   void makeActive( ReadPlan & read );
   void applyActive( std::shared_ptr< Old > old );
   // What is large is destroyed in the other thread.
   void destroy( std::shared_ptr< Old > old );
   void logChanges();
   void applied();
   void end( Outcome const & outcome );
   void beginLayer();
   void layerSettled( ReadPlan & read );
   void tellLayered( Layered const & layered ) const;
   void warningsAre( std::vector< Settings::ConfigError > const & warnings );

   std::string const file_;
   Condition condition_;
   Condition slow_;
   Apply const apply_;
   Read const read_;
   Valen::Linux::Worker::Job lookUp_; // may be empty
   ActiveConfiguration active_;
   Files files_;
   std::shared_ptr< Layer > const layer_;              // the other thread's, after the start
   std::optional< Settings::EntityChanges > entities_; // to be settled
   bool replaceEntities_ = false;                      // `entities_` are all
   std::function< void( Layered const & ) > layered_;  // may be empty
   std::vector< Done > running_;                       // of the reload that runs
   std::vector< Done > next_;                          // of the one after it
   bool reloading_ = false;                            // or settling entities
   U64 number_ = 0;                                    // of reloads so far
   std::vector< std::string > changes_;                // of the reload that runs
   std::size_t logged_ = 0;                            // of `changes_`
   Slices slices_;
   Gantry::Timer timer_; // of a read that takes long
   // Leaves a read behind that does not end.
   Valen::Linux::Worker reader_;
};

} // namespace Valend
