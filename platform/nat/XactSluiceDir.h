#pragma once

// Transactions of the sluice: how the worker asks another module to program a NAT rule
// and learns how it went.
//
// A request (XactSluiceConfig) and its answer (XactSluiceStatus) are keyed by the
// rule's uid. The requester writes the request into an XactSluiceConfigDir; the module
// that serves it writes the answer into an XactSluiceStatusDir under the same key, with
// the result and the request's `field` copied back unchanged, so the requester can tell
// which request an answer belongs to. Each directory announces every write and every
// removal of a present key to its reactors with the key.

#include <iosfwd>
#include <string>
#include <unordered_map>

#include "platform/fwk/Entity.h"
#include "platform/nat/Uid.h"

namespace Xact {

class XactSluiceKey {
public:
   XactSluiceKey() = default;
   explicit XactSluiceKey( CorvaneNat::Uid uid ) : uid_( uid ) {}

   CorvaneNat::Uid uid() const { return uid_; }
   unsigned hash( unsigned seed ) const noexcept { return uid_.hash( seed ); }

   bool operator==( XactSluiceKey const& o ) const { return uid_ == o.uid_; }
   bool operator!=( XactSluiceKey const& o ) const { return uid_ != o.uid_; }
   bool operator<( XactSluiceKey const& o ) const { return uid_ < o.uid_; }

private:
   CorvaneNat::Uid uid_;
};

std::ostream& operator<<( std::ostream& os, XactSluiceKey const& key );

// A request to program the rule of `key`.
struct XactSluiceConfig {
   XactSluiceKey key;
   U32 field = 0;  // the requester's own; the answer carries it back

   bool operator==( XactSluiceConfig const& o ) const {
      return key == o.key && field == o.field;
   }
   bool operator!=( XactSluiceConfig const& o ) const { return !( *this == o ); }
};

// The answer to the request of `key`.
struct XactSluiceStatus {
   enum Result : U32 {
      done = 1,    // programmed
      hwFull = 2,  // the hardware table is full
   };

   XactSluiceKey key;
   Result result = Result();  // any 32-bit value; the named ones are the agent's
   U32 field = 0;             // the request's field, unchanged

   bool operator==( XactSluiceStatus const& o ) const {
      return key == o.key && result == o.result && field == o.field;
   }
   bool operator!=( XactSluiceStatus const& o ) const { return !( *this == o ); }
};

class XactSluiceConfigDir : public Fwk::Entity {
public:
   typedef Fwk::Ptr<XactSluiceConfigDir> Ptr;
   typedef Fwk::PtrConst<XactSluiceConfigDir> PtrConst;
   static constexpr Fwk::AttributeId attrXactConfig = 1;

   typedef Fwk::Collection<
       XactSluiceKey, XactSluiceConfig,
       std::unordered_map<XactSluiceKey, XactSluiceConfig,
                          Fwk::SaltedHash<XactSluiceKey, 0x3fa1c6d5u>>>
       XactConfigCollection;
   typedef XactConfigCollection::const_iterator const_iterator;

   explicit XactSluiceConfigDir( std::string name ) : Entity( std::move( name ) ) {}

   // The request of `key`, or null.
   XactSluiceConfig const* xactConfig( XactSluiceKey const& key ) const {
      return xactConfig_.find( key );
   }
   bool xactConfigHas( XactSluiceKey const& key ) const { return xactConfig_.has( key ); }
   std::size_t xactConfigs() const { return xactConfig_.size(); }
   // Inserts the request under its key, or replaces the one there.
   void xactConfigIs( XactSluiceConfig const& config ) {
      xactConfig_.set( config.key, config );
   }
   // Removes the request of `key`; false when there was none.
   bool xactConfigDel( XactSluiceKey const& key ) { return xactConfig_.del( key ); }

   // (key, request) pairs, in no particular order.
   const_iterator begin() const { return xactConfig_.begin(); }
   const_iterator end() const { return xactConfig_.end(); }

protected:
   ~XactSluiceConfigDir() override;

private:
   XactConfigCollection xactConfig_{ this, attrXactConfig };
};

class XactSluiceStatusDir : public Fwk::Entity {
public:
   typedef Fwk::Ptr<XactSluiceStatusDir> Ptr;
   typedef Fwk::PtrConst<XactSluiceStatusDir> PtrConst;
   static constexpr Fwk::AttributeId attrXactStatus = 1;

   typedef Fwk::Collection<
       XactSluiceKey, XactSluiceStatus,
       std::unordered_map<XactSluiceKey, XactSluiceStatus,
                          Fwk::SaltedHash<XactSluiceKey, 0x72e4b80bu>>>
       XactStatusCollection;
   typedef XactStatusCollection::const_iterator const_iterator;

   explicit XactSluiceStatusDir( std::string name ) : Entity( std::move( name ) ) {}

   // The answer of `key`, or null.
   XactSluiceStatus const* xactStatus( XactSluiceKey const& key ) const {
      return xactStatus_.find( key );
   }
   bool xactStatusHas( XactSluiceKey const& key ) const { return xactStatus_.has( key ); }
   std::size_t xactStatuss() const { return xactStatus_.size(); }
   // Inserts the answer under its key, or replaces the one there.
   void xactStatusIs( XactSluiceStatus const& status ) {
      xactStatus_.set( status.key, status );
   }
   // Removes the answer of `key`; false when there was none.
   bool xactStatusDel( XactSluiceKey const& key ) { return xactStatus_.del( key ); }

   // (key, answer) pairs, in no particular order.
   const_iterator begin() const { return xactStatus_.begin(); }
   const_iterator end() const { return xactStatus_.end(); }

protected:
   ~XactSluiceStatusDir() override;

private:
   XactStatusCollection xactStatus_{ this, attrXactStatus };
};

}  // namespace Xact
