#pragma once

// The modules each NAT rule is programmed on.
//
// A ModSet is a value: a set of module ids, kept as a sorted vector (a rule lives on a
// few modules, and a vector costs least for that), iterated in ascending order.
// ModSetDir is an entity with one keyed collection, `modSet`, Uid -> ModSet; every write
// and every removal of a present uid is announced to reactors with the uid.

#include <cstddef>
#include <iosfwd>
#include <string>
#include <unordered_map>
#include <vector>

#include "platform/fwk/Entity.h"
#include "platform/nat/ModId.h"
#include "platform/nat/Uid.h"

namespace CorvaneNat {

class ModSet {
public:
   typedef CorvaneCentral::ModId ModId;
   typedef std::vector<ModId>::const_iterator const_iterator;

   bool hasModule( ModId mod ) const;
   // Adds `mod`; adding a module already in the set changes nothing.
   void moduleIs( ModId mod );
   // Removes `mod`; false when it was not in the set.
   bool moduleDel( ModId mod );
   std::size_t modules() const { return modules_.size(); }

   const_iterator begin() const { return modules_.begin(); }
   const_iterator end() const { return modules_.end(); }

   bool operator==( ModSet const& o ) const { return modules_ == o.modules_; }
   bool operator!=( ModSet const& o ) const { return modules_ != o.modules_; }

private:
   std::vector<ModId> modules_;  // ascending, no duplicates
};

// "{ 1 4 }".
std::ostream& operator<<( std::ostream& os, ModSet const& set );

class ModSetDir : public Fwk::Entity {
public:
   typedef Fwk::Ptr<ModSetDir> Ptr;
   typedef Fwk::PtrConst<ModSetDir> PtrConst;
   static constexpr Fwk::AttributeId attrModSet = 1;

   typedef Fwk::Collection<
       Uid, ModSet, std::unordered_map<Uid, ModSet, Fwk::SaltedHash<Uid, 0x4d0d5e7bu>>>
       ModSetCollection;
   typedef ModSetCollection::const_iterator const_iterator;

   explicit ModSetDir( std::string name ) : Entity( std::move( name ) ) {}

   // The modules of `uid`, or null.
   ModSet const* modSet( Uid uid ) const { return modSet_.find( uid ); }
   bool modSetHas( Uid uid ) const { return modSet_.has( uid ); }
   std::size_t modSets() const { return modSet_.size(); }
   // Inserts or replaces the modules of `uid`.
   void modSetIs( Uid uid, ModSet const& set ) { modSet_.set( uid, set ); }
   // Removes the modules of `uid`; false when there were none.
   bool modSetDel( Uid uid ) { return modSet_.del( uid ); }

   // (uid, modules) pairs, in no particular order.
   const_iterator begin() const { return modSet_.begin(); }
   const_iterator end() const { return modSet_.end(); }

protected:
   ~ModSetDir() override;

private:
   ModSetCollection modSet_{ this, attrModSet };
};

}  // namespace CorvaneNat
