#pragma once

// Orrery: the agent's state database, as a plug-in sees it.
//
// Entities are published at paths, each under a type name ("Ip::Nat::HwCapabilities").
// The platform (or the simulator) publishes with entityIs(); anyone looks entities up by
// path. A plug-in states what it needs through a mount group: it mounts paths with a
// type name and a mode, closes the group, and is told once, later, from the event loop,
// whether every mount held.
//
// Modes: "r" (read-only; the entity must be published under that type name; read-only
// access is by convention: the mounter looks it up as a const type), "w" (writable; the
// same check), "wc" (writable, created when absent: the manager makes the entity with
// Fwk::TypeFactory::instance().create( typeName, { path } ) and publishes it).
//
// Invariants: a group holds its manager; a closed group's completion is queued on the
// loop and holds the group until it has run; the manager records every mount ever made,
// in order, with its group and its outcome.

#include <map>
#include <string>
#include <vector>

#include "platform/fwk/Entity.h"
#include "platform/fwk/Ptr.h"
#include "platform/fwk/Types.h"
#include "platform/mount/OrreryMountStatus.h"

namespace Orrery {

class EntityManager;
class MountGroup;

// Told the outcome of a mount group.
class Mounter {
public:
   virtual ~Mounter() = default;
   // Called once per closed group, from the event loop, never from inside doClose().
   // `status` is mountSuccess() or the first failed mount's status.
   virtual void doMountsComplete( MountStatus status,
                                  Fwk::Ptr<EntityManager> entityManager ) = 0;
};

// One mount, as tools list it.
struct MountRecord {
   std::string path;
   std::string typeName;
   std::string mode;
   // Id of the group it was made through (MountGroup::id()).
   U32 group = 0;
   // pending until the group's mounts are checked.
   MountStatus status{ MountStatus::pending };
};

class MountGroup : public Fwk::PtrInterface {
public:
   typedef Fwk::Ptr<MountGroup> Ptr;

   // Unique per manager, from 1.
   U32 id() const { return id_; }
   bool closed() const { return closed_; }
   Mounter* mounter() const { return mounter_; }

   // Adds a mount; `mode` is "r", "w" or "wc". Asserts that the group is open.
   void doMount( std::string const& path, std::string const& typeName,
                 std::string const& mode );
   // Closes the group and queues its check on the loop. The check takes every mount in
   // order, also after one has failed ("wc" creating what is absent), records each
   // outcome, then calls the mounter's doMountsComplete() once. Closing twice asserts.
   void doClose();

private:
   friend class EntityManager;
   MountGroup( Fwk::Ptr<EntityManager> manager, Mounter* mounter, U32 id );
   ~MountGroup() override = default;
   void doCheck();

   Fwk::Ptr<EntityManager> manager_;
   Mounter* mounter_;
   U32 id_;
   bool closed_ = false;
   // Indices of this group's mounts in the manager's record.
   std::vector<std::size_t> mounts_;
};

// Made with new and held through Ptr (its groups hold it too).
class EntityManager : public Fwk::PtrInterface {
public:
   typedef Fwk::Ptr<EntityManager> Ptr;

   EntityManager() = default;

   // Publishes `entity` at `path` under `typeName`, replacing what was there.
   void entityIs( std::string const& path, std::string const& typeName,
                  Fwk::Entity::Ptr entity );
   // Withdraws what is published at `path`, if anything.
   void entityDel( std::string const& path );

   // The entity at `path`, or null.
   Fwk::Entity::Ptr entity( std::string const& path ) const;
   // The entity at `path` as a T (T may be const); null when nothing is published there
   // or it is not a T.
   template <class T>
   Fwk::Ptr<T> lookup( std::string const& path ) const {
      return Fwk::ptr_cast<T>( entity( path ) );
   }
   // The type name published at `path`, or "" when nothing is.
   std::string typeName( std::string const& path ) const;
   std::size_t entityCount() const { return entities_.size(); }

   // A new, open group reporting to `mounter`. The mounter is not held: it must outlive
   // the group's completion (the doMountsComplete() call after doClose()).
   Fwk::Ptr<MountGroup> getMountGroup( Mounter* mounter );

   // Every mount made through this manager's groups, in the order made.
   std::vector<MountRecord> const& mounts() const { return mounts_; }

protected:
   ~EntityManager() override = default;

private:
   friend class MountGroup;
   struct Published {
      std::string typeName;
      Fwk::Entity::Ptr entity;
   };
   MountStatus mountCheck( MountRecord const& mount );

   std::map<std::string, Published> entities_;
   std::vector<MountRecord> mounts_;
   U32 lastGroupId_ = 0;
};

}  // namespace Orrery
