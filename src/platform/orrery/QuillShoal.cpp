#include "platform/orrery/QuillShoal.h"

namespace QuillShoal {

Mount::Mount( Quill::Ptr< Orrery::EntityManager > entityManager )
    : entityManager_( std::move( entityManager ) ) {}

void Mount::handleInitialized() {
   initialized_ = true;
}

void Mount::doMount( Quill::String const & path, char const * /* typeName */,
                     MountInfo const & /* info */ ) {
   VALEN_ASSERT( initialized_ );
   entityManager_->mount( path.view() );
}

void Mount::doUnmount( Quill::String const & path ) {
   VALEN_ASSERT( initialized_ );
   entityManager_->unmount( path.view() );
}

Quill::Ptr< Quill::Entity > Mount::getEntity( Quill::String const & path ) const {
   return entityManager_->mounted( path.view() );
}

} // namespace QuillShoal
