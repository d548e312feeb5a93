#include "platform/mount/VekSharedMemEntityManager.h"

#include <algorithm>

#include "platform/fwk/ActivityManager.h"
#include "platform/fwk/Assert.h"
#include "platform/fwk/TypeFactory.h"

namespace VekSharedMem {

MountGroup::MountGroup( EntityManager::Ptr manager, U32 id )
    : Entity( manager->name() + "/mountGroup" + std::to_string( id ) ),
      manager_( std::move( manager ) ),
      id_( id ) {}

MountGroup::~MountGroup() {
   auto& groups = manager_->attachedGroups_;
   groups.erase( std::remove( groups.begin(), groups.end(), this ), groups.end() );
}

void MountGroup::doMount( std::string const& path, std::string const& typeName,
                          MountDescription const& description ) {
   FWK_ASSERT_TEXT( !closed_, ( "mount of " + path + " in a closed group" ).c_str() );
   manager_->mountIs( path, typeName, description, id_ );
}

void MountGroup::doClose() {
   FWK_ASSERT_TEXT( !closed_, "mount group closed twice" );
   closed_ = true;
   Ptr self( this );
   Fwk::activityManager().post( [self] { self->attach(); } );
}

void MountGroup::attach() {
   manager_->attachedGroups_.push_back( this );
   readyIs( manager_->connected() );
}

void MountGroup::readyIs( bool ready ) {
   if ( ready == ready_ ) {
      return;
   }
   ready_ = ready;
   notify( attrReady );
}

EntityManager::EntityManager( std::string name ) : Entity( std::move( name ) ) {}

EntityManager::~EntityManager() = default;

void EntityManager::connectedIs( bool connected ) {
   if ( connected == connected_ ) {
      return;
   }
   connected_ = connected;
   notify( attrConnected );
   for ( MountGroup* group : attachedGroups_ ) {
      group->readyIs( connected );
   }
}

MountGroup::Ptr EntityManager::mountGroup() {
   return MountGroup::Ptr( new MountGroup( Ptr( this ), ++lastGroupId_ ) );
}

void EntityManager::doMount( std::string const& path, std::string const& typeName,
                             MountDescription const& description ) {
   mountIs( path, typeName, description, 0 );
}

Fwk::Entity::Ptr EntityManager::getEntity( std::string const& path ) const {
   auto i = tables_.find( path );
   return i == tables_.end() ? nullptr : i->second.entity;
}

std::string EntityManager::typeName( std::string const& path ) const {
   auto i = tables_.find( path );
   return i == tables_.end() ? std::string() : i->second.typeName;
}

void EntityManager::mountIs( std::string const& path, std::string const& typeName,
                             MountDescription const& description, U32 group ) {
   FWK_ASSERT( !path.empty() );
   auto i = tables_.find( path );
   if ( i == tables_.end() ) {
      Fwk::Entity::Ptr made = Fwk::TypeFactory::instance().create( typeName, { path } );
      FWK_ASSERT_TEXT(
          made, ( "shared-memory table type unknown to the type factory: " + typeName )
                    .c_str() );
      tables_[path] = Table{ typeName, std::move( made ) };
   } else {
      FWK_ASSERT_TEXT(
          i->second.typeName == typeName,
          ( "table " + path + " is a " + i->second.typeName + ", mounted as " + typeName )
              .c_str() );
   }
   mounts_.push_back( MountRecord{ path, typeName, description, group } );
}

}  // namespace VekSharedMem
