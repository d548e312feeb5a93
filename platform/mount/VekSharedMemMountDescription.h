#pragma once

// How a process mounts a shared-memory table: the kind of mount and the sizing of the
// table's collections.
//
// Mount types: 0 (localStatus) a status table this process alone writes; 1
// (requestReader) a request queue written upstream that this process only reads; 2
// (shared) a table shared by several processes. The service records the type and the
// sizes and reports them to tools; it does not bound the collections.

#include <map>
#include <string>

#include "platform/fwk/Types.h"

namespace VekSharedMem {

class MountDescription {
public:
   enum : int { localStatus = 0, requestReader = 1, shared = 2 };
   typedef std::map<std::string, U32> CollectionSizes;

   MountDescription() = default;
   explicit MountDescription( int mountType, CollectionSizes sizes = {} )
       : mountType_( mountType ), sizes_( std::move( sizes ) ) {}

   int mountType() const { return mountType_; }
   void mountTypeIs( int mountType ) { mountType_ = mountType; }

   // Maximum number of entries of a collection of the table ("xactStatus" -> 0x4000).
   void collectionSizeIs( std::string const& collection, U32 maxEntries ) {
      sizes_[collection] = maxEntries;
   }
   // The size given for `collection`, or 0 when none was.
   U32 collectionSize( std::string const& collection ) const;
   CollectionSizes const& collectionSizes() const { return sizes_; }

   // "shared xactStatus=16384 ...": the type's name, then each collection's size.
   std::string stringValue() const;

private:
   int mountType_ = localStatus;
   CollectionSizes sizes_;
};

}  // namespace VekSharedMem
