#include "platform/fwk/Entity.h"

#include <algorithm>

#include "platform/fwk/ActivityManager.h"

namespace Fwk {

Entity::~Entity() = default;

void Entity::notify( AttributeId attr ) const {
   if ( hasReactors() ) {
      enqueue( attr, StoredKey() );
   }
}

void Entity::enqueue( AttributeId attr, StoredKey key ) const {
   activityManager().enqueue( ActivityManager::Notification{
       Fwk::PtrConst<Entity>( this ), attr, std::move( key ), nullptr, 0 } );
}

void Entity::deliver( AttributeId attr, KeyRef key, U64 sequence ) const {
   // Keep this entity alive even if a reaction drops the last outside reference.
   Fwk::PtrConst<Entity> self( this );
   ++delivering_;
   // Reactors added by a reaction do not see the change being delivered.
   std::size_t const count = reactors_.size();
   for ( std::size_t i = 0; i < count; ++i ) {
      Reactor* reactor = reactors_[i];
      if ( reactor && reactor->notificationActive() && reactor->createdAt_ < sequence ) {
         reactor->onAttribute( attr, key );
      }
   }
   if ( --delivering_ == 0 ) {
      reactors_.erase( std::remove( reactors_.begin(), reactors_.end(), nullptr ),
                       reactors_.end() );
   }
}

void Entity::reactorIs( Reactor* reactor ) const {
   reactors_.push_back( reactor );
}

void Entity::reactorDel( Reactor* reactor ) const {
   auto i = std::find( reactors_.begin(), reactors_.end(), reactor );
   if ( i == reactors_.end() ) {
      return;
   }
   if ( delivering_ ) {
      *i = nullptr;  // compacted when the delivery ends
   } else {
      reactors_.erase( i );
   }
}

Reactor::Reactor( Entity const* notifier )
    : notifier_( notifier ), createdAt_( activityManager().changeCount() ) {
   if ( notifier_ ) {
      notifier_->reactorIs( this );
   }
}

Reactor::~Reactor() {
   detach();
}

void Reactor::detach() {
   if ( notifier_ ) {
      notifier_->reactorDel( this );
      notifier_ = nullptr;
   }
}

}  // namespace Fwk
