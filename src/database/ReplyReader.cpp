#include "database/ReplyReader.h"

#include <hiredis/hiredis.h>
#include <new>

namespace Database {

// Each makes the object of a task, and puts it in its place in the reply around it. The outermost object belongs to the
// parser until it is returned; null means that there is no room, and ends the parsing.
struct ReplyReader::Functions {
   static void * put( redisReadTask const * task, Reply reply ) noexcept {
      auto & reader = *static_cast< ReplyReader * >( task->privdata );
      if ( !reader.fits( reply.text.size() ) ) {
         return nullptr;
      }
      if ( !task->parent ) {
         return new ( std::nothrow ) Reply( std::move( reply ) );
      }
      auto & place = static_cast< Reply * >( task->parent->obj )
                        ->items[ static_cast< std::size_t >( task->idx ) ];
      place = std::move( reply );
      return &place;
   }
   static Reply::Type typeOf( redisReadTask const * task ) noexcept {
      switch ( task->type ) {
      case REDIS_REPLY_ERROR:
         return Reply::Type::error;
      case REDIS_REPLY_STATUS:
         return Reply::Type::status;
      default:
         return Reply::Type::text;
      }
   }

   static void * text( redisReadTask const * task, char * bytes, std::size_t size ) noexcept {
      return put( task, { .type = typeOf( task ), .text = std::string( bytes, size ) } );
   }
   static void * list( redisReadTask const * task, int elements ) noexcept {
      auto & reader = *static_cast< ReplyReader * >( task->privdata );
      auto const count = static_cast< std::size_t >( elements );
      if ( !reader.fits( U64( count ) * sizeof( Reply ) ) ) {
         return nullptr; // before they are made: a few bytes can announce millions
      }
      return put( task, { .type = Reply::Type::list, .items = std::vector< Reply >( count ) } );
   }
   static void * number( redisReadTask const * task, long long value ) noexcept {
      return put( task, { .type = Reply::Type::number, .number = value } );
   }
   static void * nothing( redisReadTask const * task ) noexcept { return put( task, {} ); }
   static void free( void * reply ) noexcept { delete static_cast< Reply * >( reply ); }

   static inline redisReplyObjectFunctions table{ text, list, number, nothing, free };
};

void ReplyReader::Free::operator()( redisReader * reader ) const noexcept {
   redisReaderFree( reader );
}

ReplyReader::ReplyReader( std::size_t bound )
    : bound_( bound ), reader_( redisReaderCreateWithFunctions( &Functions::table ) ) {
   if ( !reader_ ) {
      throw std::bad_alloc();
   }
   reader_->privdata = this;
}

ReplyReader::~ReplyReader() = default;

bool ReplyReader::fits( U64 bytes ) noexcept {
   used_ += bytes;
   return used_ <= bound_;
}

void ReplyReader::feed( std::string_view bytes ) {
   if ( error_.empty() &&
        redisReaderFeed( reader_.get(), bytes.data(), bytes.size() ) != REDIS_OK ) {
      error_ = reader_->errstr;
   }
}

std::optional< Reply > ReplyReader::next() {
   if ( !error_.empty() ) {
      return std::nullopt;
   }
   void * root = nullptr;
   bool const read = redisReaderGetReply( reader_.get(), &root ) == REDIS_OK;
   std::unique_ptr< Reply > const reply( static_cast< Reply * >( root ) );
   if ( used_ > bound_ || reader_->len - reader_->pos > bound_ ) {
      tooLarge_ = true;
      error_ = "a reply has more than " + std::to_string( bound_ ) + " bytes";
   } else if ( !read ) {
      error_ = std::string( "the server does not speak the protocol: " ) + reader_->errstr;
   }
   if ( !error_.empty() || !reply ) {
      return std::nullopt;
   }
   used_ = 0;
   return std::move( *reply );
}

} // namespace Database
