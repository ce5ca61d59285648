// The process's fault sink while it lives: what was reported, in order.
#pragma once

#include "platform/quill/Fault.h"

#include <string>
#include <vector>

namespace Valen::Test {

class FaultRecorder final : public Quill::FaultSink {
 public:
   FaultRecorder() : old_( Quill::faultSinkIs( this ) ) {}
   ~FaultRecorder() override { Quill::faultSinkIs( old_ ); }
   FaultRecorder( FaultRecorder const & ) = delete;
   FaultRecorder & operator=( FaultRecorder const & ) = delete;

   void fault( Quill::Fault const & fault ) noexcept override { faults_.push_back( fault ); }

   std::vector< Quill::Fault > const & faults() const { return faults_; }
   std::vector< std::string > messages() const {
      std::vector< std::string > messages;
      for ( auto const & fault : faults_ ) {
         messages.push_back( fault.message() );
      }
      return messages;
   }

 private:
   Quill::FaultSink * const old_;
   std::vector< Quill::Fault > faults_;
};

} // namespace Valen::Test
