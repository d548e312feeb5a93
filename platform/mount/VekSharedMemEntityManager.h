#pragma once

// VekSharedMem: tables in shared memory, as a plug-in sees them.
//
// Upstream processes write tables (request queues, shared tables); a plug-in mounts the
// ones it reads, and its own status tables, by path and type name. A mount creates the
// table with Fwk::TypeFactory::instance().create( typeName, { path } ) when nothing is
// at the path yet (shared tables are made by whoever mounts first) and reuses it
// otherwise, so every mounter of a path sees the same entity.
//
// Readiness: tables are usable once the manager is connected to shared memory. A mount
// group is ready when it is closed and the manager is connected; it becomes ready from
// the loop after doClose() and then follows connectedIs(). Each change of `ready` is
// announced to the group's reactors, through the loop like every entity change.
//
// Invariants: a group holds its manager, the manager holds its tables; the manager
// tracks its closed groups without holding them (a group leaves the list when it goes).
// Mounting a path with another type name than it has, or a type name the factory does
// not know, is a programming error and asserts.

#include <map>
#include <string>
#include <vector>

#include "platform/fwk/Entity.h"
#include "platform/fwk/Ptr.h"
#include "platform/fwk/Types.h"
#include "platform/mount/VekSharedMemMountDescription.h"

namespace VekSharedMem {

class EntityManager;

// One mount, as tools list it.
struct MountRecord {
   std::string path;
   std::string typeName;
   MountDescription description;
   // Id of the group it was made through (MountGroup::id()); 0 when made directly on
   // the manager.
   U32 group = 0;
};

class MountGroup : public Fwk::Entity {
public:
   typedef Fwk::Ptr<MountGroup> Ptr;
   typedef Fwk::PtrConst<MountGroup> PtrConst;
   enum : Fwk::AttributeId { attrReady = 1 };

   // Unique per manager, from 1.
   U32 id() const { return id_; }
   bool closed() const { return closed_; }
   bool ready() const { return ready_; }

   // Mounts a table at once (creating or reusing it, see above). Asserts that the
   // group is open.
   void doMount( std::string const& path, std::string const& typeName,
                 MountDescription const& description );
   // Closes the group; from the loop it becomes ready if the manager is connected.
   // Closing twice asserts.
   void doClose();

private:
   friend class EntityManager;
   MountGroup( Fwk::Ptr<EntityManager> manager, U32 id );
   ~MountGroup() override;
   void attach();
   void readyIs( bool ready );

   Fwk::Ptr<EntityManager> manager_;
   U32 id_;
   bool closed_ = false;
   bool ready_ = false;
};

// Made with new and held through Ptr (its groups hold it too).
class EntityManager : public Fwk::Entity {
public:
   typedef Fwk::Ptr<EntityManager> Ptr;
   enum : Fwk::AttributeId { attrConnected = 1 };

   explicit EntityManager( std::string name = "vekSharedMem" );

   // Whether shared memory is reachable; true until the platform says otherwise.
   bool connected() const { return connected_; }
   // Sets the connection and with it the readiness of every closed group (a group is
   // notified only when its readiness changes).
   void connectedIs( bool connected );

   // A new, open group on each call; each caller closes its own.
   Fwk::Ptr<MountGroup> mountGroup();
   // Mounts a table directly, outside any group (a module's status table); the table
   // is usable at once.
   void doMount( std::string const& path, std::string const& typeName,
                 MountDescription const& description );

   // The table at `path`, or null.
   Fwk::Entity::Ptr getEntity( std::string const& path ) const;
   // The table at `path` as a T (T may be const); null when there is none or it is not
   // a T.
   template <class T>
   Fwk::Ptr<T> getEntity( std::string const& path ) const {
      return Fwk::ptr_cast<T>( getEntity( path ) );
   }
   // The type name of the table at `path`, or "" when there is none.
   std::string typeName( std::string const& path ) const;

   // Every mount, in the order made.
   std::vector<MountRecord> const& mounts() const { return mounts_; }

protected:
   ~EntityManager() override;

private:
   friend class MountGroup;
   struct Table {
      std::string typeName;
      Fwk::Entity::Ptr entity;
   };
   void mountIs( std::string const& path, std::string const& typeName,
                 MountDescription const& description, U32 group );

   std::map<std::string, Table> tables_;
   std::vector<MountRecord> mounts_;
   // Closed groups taken up by the loop, whose readiness follows the connection.
   std::vector<MountGroup*> attachedGroups_;
   bool connected_ = true;
   U32 lastGroupId_ = 0;
};

}  // namespace VekSharedMem
