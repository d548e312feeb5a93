#pragma once

// How multicast NAT translates: the translation types the chip applies, in order.
//
// McastTranslationMode is an entity with the number of types (`numTranslationTypes`) and
// an ordered collection `translationType`, position -> type, iterated in ascending
// position. A publisher writes a whole mode with typesIs(), which leaves exactly the
// positions 0 to n-1 and sets the count to n. Every write, and every removal of a
// present position, is announced to reactors with the attribute and, for the
// collection, the position.

#include <cstddef>
#include <string>
#include <vector>

#include "platform/fwk/Entity.h"

namespace Ip {
namespace Nat {

// What one translation step rewrites. Holds any 32-bit value; the named ones are those
// the agent knows.
enum McastTranslationType : U32 {
   mcastXlateSrc = 1,        // the source address
   mcastXlateGroup = 2,      // the group (destination) address
   mcastXlateSrcGroup = 3,   // the source and the group address
   mcastXlateSrcPort = 4,    // the source address and port
   mcastXlateGroupPort = 5,  // the group address and destination port
};

// Text form of a type: its name, or the number for a value without one.
std::string valueToStrep( McastTranslationType type );

class McastTranslationMode : public Fwk::Entity {
public:
   typedef Fwk::Ptr<McastTranslationMode> Ptr;
   typedef Fwk::PtrConst<McastTranslationMode> PtrConst;
   static constexpr Fwk::AttributeId attrNumTranslationTypes = 1;
   static constexpr Fwk::AttributeId attrTranslationType = 2;

   typedef Fwk::OrderedCollection<U32, McastTranslationType> TranslationTypeCollection;
   typedef TranslationTypeCollection::const_iterator const_iterator;

   explicit McastTranslationMode( std::string name ) : Entity( std::move( name ) ) {}

   U32 numTranslationTypes() const { return numTranslationTypes_; }
   void numTranslationTypesIs( U32 count );

   // The type at `position`, or null.
   McastTranslationType const* translationType( U32 position ) const {
      return translationType_.find( position );
   }
   std::size_t translationTypes() const { return translationType_.size(); }
   void translationTypeIs( U32 position, McastTranslationType type ) {
      translationType_.set( position, type );
   }
   // Removes the type at `position`; false when there was none.
   bool translationTypeDel( U32 position ) { return translationType_.del( position ); }
   // Removes every position (each removal is announced).
   void translationTypeDelAll() { translationType_.delAll(); }
   // (position, type) pairs, in ascending position.
   TranslationTypeCollection const& translationType() const { return translationType_; }
   const_iterator begin() const { return translationType_.begin(); }
   const_iterator end() const { return translationType_.end(); }

   // Publishes a whole mode: `types[i]` at position i, no other positions, and the
   // count set to the list's size. Positions are written first, then positions beyond
   // the list removed, then the count set.
   void typesIs( std::vector<McastTranslationType> const& types );

protected:
   ~McastTranslationMode() override;

private:
   U32 numTranslationTypes_ = 0;
   TranslationTypeCollection translationType_{ this, attrTranslationType };
};

}  // namespace Nat
}  // namespace Ip
