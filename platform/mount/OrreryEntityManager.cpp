#include "platform/mount/OrreryEntityManager.h"

#include "platform/fwk/ActivityManager.h"
#include "platform/fwk/Assert.h"
#include "platform/fwk/TypeFactory.h"

namespace Orrery {

MountGroup::MountGroup( EntityManager::Ptr manager, Mounter* mounter, U32 id )
    : manager_( std::move( manager ) ), mounter_( mounter ), id_( id ) {}

void MountGroup::doMount( std::string const& path, std::string const& typeName,
                          std::string const& mode ) {
   FWK_ASSERT_TEXT( !closed_, ( "mount of " + path + " in a closed group" ).c_str() );
   FWK_ASSERT_TEXT( mode == "r" || mode == "w" || mode == "wc",
                    ( "mount of " + path + " in unknown mode '" + mode + "'" ).c_str() );
   FWK_ASSERT( !path.empty() );
   mounts_.push_back( manager_->mounts_.size() );
   manager_->mounts_.push_back( MountRecord{ path, typeName, mode, id_ } );
}

void MountGroup::doClose() {
   FWK_ASSERT_TEXT( !closed_, "mount group closed twice" );
   closed_ = true;
   Ptr self( this );
   Fwk::activityManager().post( [self] { self->doCheck(); } );
}

void MountGroup::doCheck() {
   MountStatus result = mountSuccess();
   for ( std::size_t i : mounts_ ) {
      // A copy: a type's creator may mount too, which moves the record.
      MountStatus status = manager_->mountCheck( MountRecord( manager_->mounts_[i] ) );
      manager_->mounts_[i].status = status;
      if ( result == mountSuccess() ) {
         result = status;
      }
   }
   mounter_->doMountsComplete( result, manager_ );
}

void EntityManager::entityIs( std::string const& path, std::string const& typeName,
                              Fwk::Entity::Ptr entity ) {
   FWK_ASSERT( !path.empty() );
   FWK_ASSERT_TEXT( entity, ( "null entity published at " + path ).c_str() );
   entities_[path] = Published{ typeName, std::move( entity ) };
}

void EntityManager::entityDel( std::string const& path ) {
   entities_.erase( path );
}

Fwk::Entity::Ptr EntityManager::entity( std::string const& path ) const {
   auto i = entities_.find( path );
   return i == entities_.end() ? nullptr : i->second.entity;
}

std::string EntityManager::typeName( std::string const& path ) const {
   auto i = entities_.find( path );
   return i == entities_.end() ? std::string() : i->second.typeName;
}

MountGroup::Ptr EntityManager::getMountGroup( Mounter* mounter ) {
   FWK_ASSERT( mounter );
   return MountGroup::Ptr( new MountGroup( Ptr( this ), mounter, ++lastGroupId_ ) );
}

MountStatus EntityManager::mountCheck( MountRecord const& mount ) {
   auto i = entities_.find( mount.path );
   if ( i != entities_.end() ) {
      return i->second.typeName == mount.typeName
                 ? mountSuccess()
                 : MountStatus( MountStatus::typeMismatch );
   }
   if ( mount.mode != "wc" ) {
      return MountStatus( MountStatus::entityMissing );
   }
   Fwk::Entity::Ptr made =
       Fwk::TypeFactory::instance().create( mount.typeName, { mount.path } );
   if ( !made ) {
      return MountStatus( MountStatus::typeUnknown );
   }
   entityIs( mount.path, mount.typeName, std::move( made ) );
   return mountSuccess();
}

}  // namespace Orrery
