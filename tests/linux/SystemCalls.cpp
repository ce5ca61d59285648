#include "tests/linux/SystemCalls.h"

#include <cstdlib>
#include <new>
#include <signal.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

unsigned long allocationCount = 0;

// A system call that is not used otherwise marks the start and the end of the work.
constexpr auto marker = SYS_getppid;

[[noreturn]] void child( std::function< void() > const & work ) {
   ::ptrace( PTRACE_TRACEME, 0, nullptr, nullptr );
   ::raise( SIGSTOP );
   ::syscall( marker );
   work();
   ::syscall( marker );
   ::_exit( 0 );
}

// Runs the child until it enters its next system call. Returns the number of the call; -1 at the end.
long nextSystemCall( int pid ) {
   for ( ;; ) {
      int status = 0;
      if ( ::ptrace( PTRACE_SYSCALL, pid, nullptr, nullptr ) < 0 ||
           ::waitpid( pid, &status, 0 ) != pid || !WIFSTOPPED( status ) ) {
         return -1;
      }
      __ptrace_syscall_info info{};
      ::ptrace( PTRACE_GET_SYSCALL_INFO, pid, sizeof info, &info );
      if ( info.op == PTRACE_SYSCALL_INFO_ENTRY ) {
         return static_cast< long >( info.entry.nr );
      }
   }
}

} // namespace

void * operator new( std::size_t size ) {
   ++allocationCount;
   if ( void * const memory = std::malloc( size ) ) {
      return memory;
   }
   throw std::bad_alloc();
}

void operator delete( void * memory ) noexcept {
   std::free( memory );
}

void operator delete( void * memory, std::size_t ) noexcept {
   std::free( memory );
}

namespace Valen::Test {

int systemCallsOf( std::function< void() > const & work ) {
   auto const pid = ::fork();
   if ( pid == 0 ) {
      child( work );
   }
   int status = 0;
   ::waitpid( pid, &status, 0 );
   ::ptrace( PTRACE_SETOPTIONS, pid, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL );
   int calls = 0;
   bool inside = false;
   for ( auto call = nextSystemCall( pid ); call >= 0; call = nextSystemCall( pid ) ) {
      if ( call == marker && inside ) {
         ::kill( pid, SIGKILL );
         ::waitpid( pid, &status, 0 );
         return calls;
      }
      calls += inside;
      inside |= call == marker;
   }
   return -1;
}

unsigned long allocations() {
   return allocationCount;
}

} // namespace Valen::Test
