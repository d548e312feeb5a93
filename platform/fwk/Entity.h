#pragma once

// Entities, reactors and keyed collections.
//
// An Entity is a reference-counted object with attributes. A change of an attribute (or
// of one key of a keyed collection) is announced with notify(); the change is queued on
// the current ActivityManager and delivered later, from its loop, to every Reactor that
// watches the entity, existed when the change was made, and whose notifications are
// active at delivery. So a reactor sees each change made after its creation exactly
// once, and none made before (read the entity's state at creation instead). Delivery runs
// each reaction to its end: a change made inside a reaction is delivered after that
// reaction returns, in the order the changes were made.
//
// Invariants: an entity that has queued notifications stays alive until they are
// delivered (the queue holds a reference); a reactor holds a reference to the entity it
// watches, so a watched entity outlives its reactors. A reactor may be destroyed or
// silenced at any time, also from inside a reaction; it then receives nothing more.
// Changes made while no reactor watches an entity are not queued at all.

#include <cstddef>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <type_traits>
#include <typeinfo>
#include <unordered_map>
#include <utility>
#include <vector>

#include "platform/fwk/Assert.h"
#include "platform/fwk/Hash.h"
#include "platform/fwk/Ptr.h"
#include "platform/fwk/Types.h"

namespace Fwk {

typedef U16 AttributeId;

// The key of a changed collection element, as a reactor sees it: a typed reference that
// is valid for the duration of the reaction, and whether the change removed the element
// (the element's presence at delivery may differ: it may have changed again since). A
// change of a plain attribute has a null key.
class KeyRef {
public:
   KeyRef() = default;
   template <class K>
   explicit KeyRef( K const& k, bool removed = false )
       : type_( &typeid( K ) ), key_( &k ), removed_( removed ) {}

   bool isNull() const { return key_ == nullptr; }
   bool removed() const { return removed_; }
   template <class K>
   bool is() const {
      return type_ && *type_ == typeid( K );
   }
   template <class K>
   K const& as() const {
      FWK_ASSERT_TEXT( is<K>(), "KeyRef of another key type" );
      return *static_cast<K const*>( key_ );
   }

private:
   friend class StoredKey;
   KeyRef( std::type_info const* type, void const* key, bool removed )
       : type_( type ), key_( key ), removed_( removed ) {}

   std::type_info const* type_ = nullptr;
   void const* key_ = nullptr;
   bool removed_ = false;
};

class Reactor;

class Entity : public PtrInterface {
public:
   typedef Fwk::Ptr<Entity> Ptr;
   typedef Fwk::PtrConst<Entity> PtrConst;

   std::string const& name() const { return name_; }

   // Announces a change of an attribute, or of one key of a collection attribute.
   void notify( AttributeId attr ) const;
   template <class K>
   void notify( AttributeId attr, K const& key, bool removed = false ) const;

   // Delivers a change to the active reactors created before change number `sequence`
   // (the loop's count of changes; timers deliver their run at once with the current
   // count, being a reaction themselves).
   void deliver( AttributeId attr, KeyRef key, U64 sequence ) const;

protected:
   explicit Entity( std::string name ) : name_( std::move( name ) ) {}
   ~Entity() override;

private:
   friend class Reactor;
   void reactorIs( Reactor* reactor ) const;
   void reactorDel( Reactor* reactor ) const;
   void enqueue( AttributeId attr, class StoredKey key ) const;
   bool hasReactors() const { return !reactors_.empty(); }

   std::string name_;
   mutable std::vector<Reactor*> reactors_;
   mutable int delivering_ = 0;
};

// A watcher of one entity. Subclasses override onAttribute(); it is called from the
// loop for each change of the watched entity while notifications are active (they start
// inactive: the owner switches them on with hasNotificationActiveIs( true )).
class Reactor {
public:
   Reactor( Reactor const& ) = delete;
   Reactor& operator=( Reactor const& ) = delete;
   virtual ~Reactor();

   bool notificationActive() const { return active_; }
   virtual void hasNotificationActiveIs( bool active ) { active_ = active; }

   virtual void onAttribute( AttributeId attr, KeyRef key ) = 0;

protected:
   // Registers with the notifier, which must outlive the reactor (ReactorOn holds it).
   explicit Reactor( Entity const* notifier );
   // Unregisters from the entity now (a subclass that holds the entity does so before
   // it lets go of it).
   void detach();

private:
   friend class Entity;
   Entity const* notifier_;
   U64 createdAt_;  // the loop's change count when the reactor was made
   bool active_ = false;
};

// A reactor that holds the entity it watches (E may be const for a read-only view) and
// a back pointer to its owner, which must outlive it (owners hold their reactors).
template <class E, class Owner>
class ReactorOn : public Reactor {
public:
   ReactorOn( Fwk::Ptr<E> const& notifier, Owner* owner )
       : Reactor( notifier.ptr() ), notifier_( notifier ), owner_( owner ) {}
   // Leaves the entity before letting go of it: the reactor may hold its last reference.
   ~ReactorOn() override { detach(); }

   E* notifier() const { return notifier_.ptr(); }
   Owner* owner() const { return owner_; }

private:
   Fwk::Ptr<E> notifier_;
   Owner* owner_;
};

// A copy of a changed key, held by a queued change until it is delivered. Keys that are
// trivially copyable and small (every key of the platform's tables) are kept in place, so
// queuing a change allocates nothing; other keys are kept on the heap.
class StoredKey {
public:
   StoredKey() = default;
   template <class K>
   StoredKey( K const& key, bool removed );
   StoredKey( StoredKey&& other ) noexcept { take( other ); }
   StoredKey& operator=( StoredKey&& other ) noexcept {
      if ( this != &other ) {
         release();
         take( other );
      }
      return *this;
   }
   StoredKey( StoredKey const& ) = delete;
   StoredKey& operator=( StoredKey const& ) = delete;
   ~StoredKey() { release(); }

   // A null reference when no key is held.
   KeyRef ref() const {
      return type_ ? KeyRef( type_, heap_ ? heap_ : inline_, removed_ ) : KeyRef();
   }

private:
   static constexpr std::size_t inlineSize = 48;
   template <class K>
   static constexpr bool fitsInline() {
      return std::is_trivially_copyable<K>::value && sizeof( K ) <= inlineSize &&
             alignof( K ) <= alignof( std::max_align_t );
   }
   void take( StoredKey& other ) {
      type_ = other.type_;
      removed_ = other.removed_;
      heap_ = other.heap_;
      destroy_ = other.destroy_;
      if ( type_ && !heap_ ) {
         std::memcpy( inline_, other.inline_, inlineSize );
      }
      other.type_ = nullptr;
      other.heap_ = nullptr;
      other.destroy_ = nullptr;
   }
   void release() {
      if ( heap_ ) {
         destroy_( heap_ );
         heap_ = nullptr;
      }
   }

   alignas( std::max_align_t ) unsigned char inline_[inlineSize];
   void* heap_ = nullptr;
   void ( *destroy_ )( void* ) = nullptr;
   std::type_info const* type_ = nullptr;
   bool removed_ = false;
};

template <class K>
StoredKey::StoredKey( K const& key, bool removed )
    : type_( &typeid( K ) ), removed_( removed ) {
   if constexpr ( fitsInline<K>() ) {
      std::memcpy( inline_, &key, sizeof( K ) );
   } else {
      heap_ = new K( key );
      destroy_ = []( void* k ) { delete static_cast<K*>( k ); };
   }
}

template <class K>
void Entity::notify( AttributeId attr, K const& key, bool removed ) const {
   if ( hasReactors() ) {
      enqueue( attr, StoredKey( key, removed ) );
   }
}

// A keyed collection attribute of an entity. Every write and every removal of a present
// key is announced to the owner's reactors with the attribute and the key, marked as a
// removal for removals (a write is announced even when the value is unchanged). Map is
// the container: a hash map by default, std::map where key order matters.
template <class K, class V, class Map = std::unordered_map<K, V, SaltedHash<K, 0>>>
class Collection {
public:
   typedef typename Map::const_iterator const_iterator;

   Collection( Entity const* owner, AttributeId attr ) : owner_( owner ), attr_( attr ) {}

   V const* find( K const& key ) const {
      auto i = map_.find( key );
      return i == map_.end() ? nullptr : &i->second;
   }
   bool has( K const& key ) const { return map_.find( key ) != map_.end(); }
   std::size_t size() const { return map_.size(); }
   const_iterator begin() const { return map_.begin(); }
   const_iterator end() const { return map_.end(); }

   void set( K const& key, V value ) {
      map_[key] = std::move( value );
      owner_->notify( attr_, key );
   }
   bool del( K const& key ) {
      if ( map_.erase( key ) == 0 ) {
         return false;
      }
      owner_->notify( attr_, key, true );
      return true;
   }
   void delAll() {
      while ( !map_.empty() ) {
         K key = map_.begin()->first;
         del( key );
      }
   }

private:
   Entity const* owner_;
   AttributeId attr_;
   Map map_;
};

template <class K, class V>
using OrderedCollection = Collection<K, V, std::map<K, V>>;

}  // namespace Fwk
