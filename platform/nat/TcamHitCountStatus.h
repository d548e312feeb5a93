#pragma once

// Hit counts of dynamic NAT's TCAM entries, which tell whether a dynamic translation is
// still in use.
//
// TcamHitCountKey names one dynamic NAT entry by what it matches: source and destination
// address and port, protocol, and whether it is source or destination NAT.
// TcamHitCountStatus is an entity with one keyed collection, `entry`, key -> total hits
// so far; every write and every removal of a present key is announced to reactors with
// the key.

#include <cstddef>
#include <iosfwd>
#include <string>
#include <unordered_map>

#include "platform/fwk/Entity.h"
#include "platform/nat/Wirel.h"

namespace CorvaneNat {

class TcamHitCountKey {
public:
   // Which side a dynamic entry translates. Holds any 32-bit value; the named ones are
   // those the agent knows.
   enum NatKeyType : U32 {
      dynamicSrcNat = 0,  // dynamic source NAT
      dynamicDstNat = 1,  // dynamic destination NAT
   };

   TcamHitCountKey() = default;
   TcamHitCountKey( NatKeyType keyType, Wirel::IpAddr srcAddr, U16 srcPort,
                    Wirel::IpAddr dstAddr, U16 dstPort, U8 protocol )
       : srcAddr_( srcAddr ),
         dstAddr_( dstAddr ),
         keyType_( keyType ),
         srcPort_( srcPort ),
         dstPort_( dstPort ),
         protocol_( protocol ) {}

   Wirel::IpAddr srcAddr() const { return srcAddr_; }
   U16 srcPort() const { return srcPort_; }
   Wirel::IpAddr dstAddr() const { return dstAddr_; }
   U16 dstPort() const { return dstPort_; }
   U8 protocol() const { return protocol_; }
   NatKeyType keyType() const { return keyType_; }

   void srcAddrIs( Wirel::IpAddr srcAddr ) { srcAddr_ = srcAddr; }
   void srcPortIs( U16 srcPort ) { srcPort_ = srcPort; }
   void dstAddrIs( Wirel::IpAddr dstAddr ) { dstAddr_ = dstAddr; }
   void dstPortIs( U16 dstPort ) { dstPort_ = dstPort; }
   void protocolIs( U8 protocol ) { protocol_ = protocol; }
   void keyTypeIs( NatKeyType keyType ) { keyType_ = keyType; }

   // "type: dynamicSrcNat, src: 10.0.0.1:1024, dst: 192.0.2.1:80, proto: 6".
   std::string stringValue() const;
   unsigned hash( unsigned seed ) const noexcept;

   bool operator==( TcamHitCountKey const& o ) const;
   bool operator!=( TcamHitCountKey const& o ) const { return !( *this == o ); }
   // By type, source address and port, destination address and port, then protocol.
   bool operator<( TcamHitCountKey const& o ) const;

private:
   Wirel::IpAddr srcAddr_;
   Wirel::IpAddr dstAddr_;
   NatKeyType keyType_ = dynamicSrcNat;
   U16 srcPort_ = 0;
   U16 dstPort_ = 0;
   U8 protocol_ = 0;
};

// Text form of a key type: its name, or the number for a value without one.
std::string valueToStrep( TcamHitCountKey::NatKeyType keyType );

std::ostream& operator<<( std::ostream& os, TcamHitCountKey const& key );

class TcamHitCountStatus : public Fwk::Entity {
public:
   typedef Fwk::Ptr<TcamHitCountStatus> Ptr;
   typedef Fwk::PtrConst<TcamHitCountStatus> PtrConst;
   static constexpr Fwk::AttributeId attrEntry = 1;

   typedef Fwk::Collection<
       TcamHitCountKey, U64,
       std::unordered_map<TcamHitCountKey, U64,
                          Fwk::SaltedHash<TcamHitCountKey, 0x0e5b27c3u>>>
       EntryCollection;
   typedef EntryCollection::const_iterator const_iterator;

   explicit TcamHitCountStatus( std::string name ) : Entity( std::move( name ) ) {}

   // The total hits of `key`, or null.
   U64 const* entry( TcamHitCountKey const& key ) const { return entry_.find( key ); }
   bool entryHas( TcamHitCountKey const& key ) const { return entry_.has( key ); }
   std::size_t entrys() const { return entry_.size(); }
   // Inserts or replaces the total hits of `key`.
   void entryIs( TcamHitCountKey const& key, U64 hits ) { entry_.set( key, hits ); }
   // Removes the hits of `key`; false when there were none.
   bool entryDel( TcamHitCountKey const& key ) { return entry_.del( key ); }

   // (key, hits) pairs, in no particular order.
   EntryCollection const& entry() const { return entry_; }
   const_iterator begin() const { return entry_.begin(); }
   const_iterator end() const { return entry_.end(); }

protected:
   ~TcamHitCountStatus() override;

private:
   EntryCollection entry_{ this, attrEntry };
};

}  // namespace CorvaneNat
