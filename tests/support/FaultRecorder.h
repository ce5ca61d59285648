// The process's fault sink while it exists: keeps what was reported, in order.
#pragma once

#include "platform/quill/Fault.h"

#include <functional>
#include <string>
#include <vector>

namespace Valen::Test {

class FaultRecorder final : public Quill::FaultSink {
 public:
   FaultRecorder() : old_( Quill::faultSinkIs( this ) ) {}
   ~FaultRecorder() override { Quill::faultSinkIs( old_ ); }
   FaultRecorder( FaultRecorder const & ) = delete;
   FaultRecorder & operator=( FaultRecorder const & ) = delete;

   void fault( Quill::Fault const & fault ) noexcept override {
      faults_.push_back( fault );
      if ( onFault ) {
         onFault();
      }
   }
   std::function< void() > onFault; // called at each fault, where it is reported

   std::vector< Quill::Fault > const & faults() const { return faults_; }
   std::vector< std::string > messages() const {
      std::vector< std::string > messages;
      for ( auto const & fault : faults_ ) {
         messages.push_back( fault.message() );
      }
      return messages;
   }
   void clear() { faults_.clear(); }

 private:
   Quill::FaultSink * const old_;
   std::vector< Quill::Fault > faults_;
};

} // namespace Valen::Test
