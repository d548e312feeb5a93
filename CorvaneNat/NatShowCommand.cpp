// The show command "ShowCorvaneNatSlice": the callback and the request that writes the
// entry-id table with its shadow data; see NatShowCommand.h for the output format and
// the slicing rules.

#include "CorvaneNat/NatShowCommand.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "CorvaneNat/NatMounter.h"
#include "CorvaneNat/NatTrace.h"
#include "platform/fwk/Assert.h"

namespace Corvane {

namespace {

char const showCommand[] = "ShowCorvaneNatSlice";
// Trace function names.
char const handleAsyncCommandFn[] = "NatSliceCommandRequestSm::handleAsyncCommand";
char const createFn[] = "NatCliCallback::createAgentAsyncCommandRequestSm";
constexpr Fwk::Seconds showQuantum = 0.05;
constexpr Fwk::Seconds simulatedChipQuantum = 0.0;
// How many rows' shadow entries the walk looks up at once.
constexpr std::size_t shadowLookahead = 16;

// The most characters of an integer type in decimal (with its sign).
template <class T>
constexpr std::size_t maxDigits() {
   return std::numeric_limits<T>::digits10 + 1 + ( std::numeric_limits<T>::is_signed );
}

// Bounds of the texts of a row: a key type's name, a key's text (the type and its
// comma, four labelled address-and-port fields, protocol, faId, aclId, reverse), the
// fields after the entries, and an object's own text around the key, VLAN and fields.
constexpr std::size_t keyTypeTextMax = 32;
constexpr std::size_t keyTextMax = 6 + keyTypeTextMax + 1 + 4 * ( 10 + 15 + 1 + 5 + 1 ) +
                                   ( 8 + 3 + 1 ) + ( 7 + 10 + 1 ) + ( 8 + 10 + 1 ) +
                                   ( 10 + 5 );
constexpr std::size_t fieldsTextMax = ( 9 + 10 + 1 ) + ( 15 + 31 + 2 ) + ( 7 + 10 + 1 ) +
                                      ( 9 + 11 + 1 ) + ( 11 + 20 + 1 ) + ( 13 + 1 + 1 ) +
                                      2;
constexpr std::size_t objectTextMax = 11 + 8 + 5 + 2;

// Writes text at a position in storage that the caller sized for it.
class Cursor {
public:
   explicit Cursor( char* at ) : at_( at ) {}
   char* at() const { return at_; }

   template <std::size_t N>
   void text( char const ( &literal )[N] ) {
      std::memcpy( at_, literal, N - 1 );
      at_ += N - 1;
   }
   void text( char const* text, std::size_t size ) {
      std::memcpy( at_, text, size );
      at_ += size;
   }
   void character( char c ) { *at_++ = c; }
   // Numbers and addresses are written in place: the storage was sized for their
   // bounds, which no value of their type exceeds.
   template <class T>
   void number( T value ) {
      at_ = std::to_chars( at_, at_ + maxDigits<T>(), value ).ptr;
   }
   // The dotted form of an address, "10.0.0.1"; 15 characters at most.
   void ip( U32 value ) {
      for ( int shift = 24; shift >= 0; shift -= 8 ) {
         at_ = std::to_chars( at_, at_ + 3, ( value >> shift ) & 0xff ).ptr;
         if ( shift != 0 ) {
            *at_++ = '.';
         }
      }
   }

private:
   char* at_;
};

// The key's text form, as NatHwKey::stringValue() gives it; keyTextMax at most.
void writeKeyText( Cursor& out, Oro::NatHwKey const& key ) {
   static char const* const labels[4] = {
       " old sip: ", " new sip: ", " old dip: ", " new dip: " };
   Wirel::IpAndPort const fields[4] = { key.srcIpAndPortOld(), key.srcIpAndPortNew(),
                                        key.dstIpAndPortOld(), key.dstIpAndPortNew() };
   out.text( "type: " );
   std::string const type = Oro::valueToStrep( key.keyType() );
   out = Cursor( boundedCopy( out.at(), type.data(), type.size(), keyTypeTextMax ) );
   out.character( ',' );
   for ( int f = 0; f < 4; ++f ) {
      if ( !fields[f].isUnset() ) {
         out.text( labels[f], 10 );
         out.ip( fields[f].ip().value() );
         out.character( ':' );
         out.number( fields[f].port() );
         out.character( ',' );
      }
   }
   out.text( " proto: " );
   out.number( unsigned( key.dynProto() ) );
   out.text( ", faId: " );
   out.number( key.faId() );
   out.text( ", aclId: " );
   out.number( key.aclId().value() );
   if ( key.reverse() ) {
      out.text( ", reverse: true" );
   } else {
      out.text( ", reverse: false" );
   }
}

// "10.0.0.0/8", or "10.0.0.0/255.0.255.0" for a mask that is not a prefix.
void writeFilterAddr( Cursor& out, Wirel::IpAddrWithFullMask const& addr ) {
   out.ip( addr.address().value() );
   out.character( '/' );
   if ( addr.maskIsContiguous() ) {
      out.number( addr.prefixLength() );
   } else {
      out.ip( addr.mask() );
   }
}

NatShowShadowFields shadowFieldsOf( Oro::NatHwShadowEntry const* entry ) {
   NatShowShadowFields fields;
   if ( entry ) {
      Oro::NatHwData const& data = entry->data();
      fields.present = true;
      fields.filterAddr = data.filterAddr();
      fields.uid = entry->uid().value();
      fields.dirty = static_cast<S32>( entry->dirty() );
      fields.nextHop = data.nextHopId();
      fields.multicast = data.multicast();
   }
   return fields;
}

// The fields after the entries (see the header); fieldsTextMax at most.
void writeFields( Cursor& out, Oro::NatHwKey const& key,
                  NatShowShadowFields const& shadow ) {
   out.text( "\"aclId\": " );
   out.number( key.aclId().value() );
   out.character( ',' );
   if ( shadow.present ) {
      out.text( "\"filterAddr\": \"" );
      writeFilterAddr( out, shadow.filterAddr );
      out.text( "\",\"uid\": " );
      out.number( shadow.uid );
      out.text( ",\"dirty\": " );
      out.number( shadow.dirty );
      out.text( ",\"nextHop\": " );
      out.number( shadow.nextHop );
      out.text( ",\"multicast\": " );
      out.character( shadow.multicast ? '1' : '0' );
      out.character( ',' );
   }
   out.text( "}," );
}

}  // namespace

char* boundedCopy( char* out, char const* value, std::size_t size, std::size_t bound ) {
   if ( size > bound ) {
      char address[32];
      std::snprintf( address, sizeof( address ), "%p",
                     static_cast<void const*>( value ) );
      std::string const message = "expected size <= " + std::to_string( bound ) +
                                  ", instead got " + std::to_string( size ) +
                                  ". Buffer is at address: " + address +
                                  " with contents: " + std::string( value, size );
      FWK_ASSERT_TEXT( size <= bound, message.c_str() );
   }
   std::memcpy( out, value, size );
   return out + size;
}

NatSliceCommandRequestSm::NatSliceCommandRequestSm( std::string name,
                                                    Agent::AgentCommandRequest request,
                                                    Fwk::Seconds quantum,
                                                    Fwk::Clock::Ptr clock,
                                                    NatWorkerSm::Ptr worker )
    : AgentAsyncCommandRequestSm( std::move( name ), std::move( request ), quantum,
                                  std::move( clock ) ),
      worker_( std::move( worker ) ) {
   FWK_ASSERT( worker_ );
}

void NatSliceCommandRequestSm::handleInitialized() {
   NAT_TRACE( 8, "NatSliceCommandRequestSm::handleInitialized",
              " initialized:" << initialized() );
   AgentAsyncCommandRequestSm::handleInitialized();
}

void NatSliceCommandRequestSm::handleAsyncCommand( int socket,
                                                   std::string const& format ) {
   NAT_TRACE( 8, handleAsyncCommandFn, " socket: " << socket << " format:" << format );
   EntryIdTable const* const table = worker_->entryIdTable();
   EntryIdTable::const_iterator row;
   if ( entryBookmark_ == Oro::NatHwKey() ) {
      NAT_TRACE( 8, handleAsyncCommandFn, " Initial iter" );
      output( "[" );
      earlierLayouts_.clear();
      layoutIs( table );
      if ( table ) {
         row = table->begin();
      }
   } else {
      NAT_TRACE( 8, handleAsyncCommandFn, " Restarting from: " << entryBookmark_ );
      if ( !table || !table->entryHas( entryBookmark_ ) ) {
         NAT_TRACE( 8, handleAsyncCommandFn, " No longer in table, stopping execution" );
         output( "]" );
         executionCompletedIs( true );
         return;
      }
      if ( walkBookmark_ != entryBookmark_ || !layout_.table ) {
         // A bookmark that this walk did not leave: the rows up to it count as walked.
         layoutIs( table );
         for ( row = table->begin(); row->key() != entryBookmark_; ++row ) {
            layout_.passed[EntryIdTable::bucketOf( row->key(), layout_.buckets )] = true;
         }
         bookmarkBucketIs( *table,
                           EntryIdTable::bucketOf( entryBookmark_, layout_.buckets ),
                           entryBookmark_ );
         ++row;
      } else if ( layout_.table.ptr() != table ||
                  layout_.buckets != table->bucketCount() ) {
         // Reordered: start again, skipping what the earlier layouts walked.
         layout_.table = nullptr;
         earlierLayouts_.push_back( std::move( layout_ ) );
         layoutIs( table );
         row = table->begin();
      } else {
         row = table->find( entryBookmark_ );
         ++row;
      }
   }

   if ( table ) {
      pipeLayoutIs();
      Oro::NatHwShadow const* const shadow = worker_->shadow();
      // What the next rows show of their shadow entries, read together: each lookup
      // waits on memory, and side by side their loads overlap. Nothing changes the
      // tables during a slice.
      std::array<NatShowShadowFields, shadowLookahead> shadowAhead;
      std::size_t looked = 0;
      std::size_t used = 0;
      for ( ; row != table->end(); ++row ) {
         if ( used == looked ) {
            used = looked = 0;
            for ( auto ahead = row; ahead != table->end() && looked < shadowLookahead;
                  ++ahead ) {
               shadowAhead[looked++] =
                   shadowFieldsOf( shadow ? shadow->entry( ahead->key() ) : nullptr );
            }
         }
         NatShowShadowFields const& shadowFields = shadowAhead[used++];
         Oro::NatHwKey const& key = row->key();
         std::size_t const bucket = EntryIdTable::bucketOf( key, layout_.buckets );
         layout_.passed[bucket] = true;
         // A row that an earlier layout walked is passed over, but still counts as a
         // unit of work: a reordered table does not make a long slice.
         if ( earlierLayouts_.empty() || !walkedEarlier( key ) ) {
            NAT_TRACE( 9, handleAsyncCommandFn, " Iterating on: " << key );
            writeRow( *row, shadowFields );
         }
         if ( shouldYield() ) {
            yieldAt( *table, bucket, key );
            return;
         }
      }
   }
   NAT_TRACE( 8, handleAsyncCommandFn, " Execution complete" );
   output( "]" );
   executionCompletedIs( true );
}

void NatSliceCommandRequestSm::layoutIs( EntryIdTable const* table ) {
   layout_ = Layout();
   if ( table ) {
      layout_.table = table;
      layout_.buckets = table->bucketCount();
      layout_.passed.assign( layout_.buckets, false );
   }
}

bool NatSliceCommandRequestSm::walked( Layout const& layout,
                                       Oro::NatHwKey const& key ) const {
   std::size_t const bucket = EntryIdTable::bucketOf( key, layout.buckets );
   if ( !layout.passed[bucket] ) {
      return false;
   }
   return bucket != layout.bookmarkBucket ||
          std::find( layout.bookmarkBucketKeys.begin(), layout.bookmarkBucketKeys.end(),
                     key ) != layout.bookmarkBucketKeys.end();
}

bool NatSliceCommandRequestSm::walkedEarlier( Oro::NatHwKey const& key ) const {
   for ( Layout const& layout : earlierLayouts_ ) {
      if ( walked( layout, key ) ) {
         return true;
      }
   }
   return false;
}

void NatSliceCommandRequestSm::yieldAt( EntryIdTable const& table, std::size_t bucket,
                                        Oro::NatHwKey const& key ) {
   NAT_TRACE( 8, handleAsyncCommandFn, " Yielding after processing: " << key );
   entryBookmarkIs( key );
   bookmarkBucketIs( table, bucket, key );
}

void NatSliceCommandRequestSm::bookmarkBucketIs( EntryIdTable const& table,
                                                 std::size_t bucket,
                                                 Oro::NatHwKey const& key ) {
   walkBookmark_ = key;
   layout_.passed[bucket] = true;
   layout_.bookmarkBucket = bucket;
   layout_.bookmarkBucketKeys.clear();
   for ( auto row = table.bucketBegin( bucket ); row != table.bucketEnd( bucket );
         ++row ) {
      layout_.bookmarkBucketKeys.push_back( row->key() );
      if ( row->key() == key ) {
         break;
      }
   }
}

void NatSliceCommandRequestSm::pipeLayoutIs() {
   copiesPerPipe_.clear();
   pipeIds_ = false;
   // "eid1": "<id>",
   entryTextMax_ = 9 + maxDigits<U32>() + 2;
   CorvaneTcamGroupManager const* const tcam = worker_->tcamGroupManager();
   if ( !tcam ) {
      return;
   }
   U32 const pipes = tcam->getNumPipe( worker_->unit() );
   U32 places = 0;
   std::size_t placesText = 0;
   for ( U32 pipe = 0; pipe < pipes; ++pipe ) {
      U32 const copies = tcam->getNumCopiesPerPipe( worker_->unit(), pipe );
      copiesPerPipe_.push_back( copies );
      places += copies;
      // " pipe<p>:" and " <id>" per copy.
      placesText += 5 + maxDigits<U32>() + 1 + copies * ( 1 + maxDigits<U32>() );
   }
   pipeIds_ = places > 1;
   if ( pipeIds_ ) {
      entryTextMax_ += placesText;
   }
}

char* NatSliceCommandRequestSm::writeEntry( char* at, U32 index, U32 entryId ) const {
   Cursor out( at );
   out.text( "\"eid" );
   out.number( index );
   out.text( "\": \"" );
   out.number( entryId );
   if ( pipeIds_ && entryId != 0 ) {
      CorvaneTcamGroupManager const* const tcam = worker_->tcamGroupManager();
      for ( U32 pipe = 0; pipe < copiesPerPipe_.size(); ++pipe ) {
         out.text( " pipe" );
         out.number( pipe );
         out.character( ':' );
         for ( U32 copy = 0; copy < copiesPerPipe_[pipe]; ++copy ) {
            out.character( ' ' );
            out.number( tcam->getPipeEntryId( worker_->unit(), entryId, pipe, copy ) );
         }
      }
   }
   out.text( "\"," );
   return out.at();
}

// One object per VLAN of the row (see the header): the key and VLAN, the VLAN's
// entries, then the fields of the key and its shadow entry, which every object of the
// row shares. The row's text is sized from the bounds of its parts and written in
// place.
void NatSliceCommandRequestSm::writeRow( EntryIdTableEntry const& row,
                                         NatShowShadowFields const& shadow ) {
   Oro::NatHwKey const& key = row.key();
   char keyText[keyTextMax];
   Cursor keyOut( keyText );
   writeKeyText( keyOut, key );
   std::size_t const keySize = std::size_t( keyOut.at() - keyText );
   char fieldsText[fieldsTextMax];
   Cursor fieldsOut( fieldsText );
   writeFields( fieldsOut, key, shadow );
   std::size_t const fieldsSize = std::size_t( fieldsOut.at() - fieldsText );

   VlanEntryIdMap const& defaults = row.defaultEntryIds();
   VlanEntryIdMap const& frags = row.fragEntryIds();
   std::size_t const objects = std::max<std::size_t>( 1, defaults.size() + frags.size() );
   // The text only grows: resizing it per row would clear it each time.
   std::size_t const most =
       objects * ( objectTextMax + keySize + 2 * entryTextMax_ + fieldsSize );
   if ( rowText_.size() < most ) {
      rowText_.resize( most );
   }
   Cursor out( &rowText_[0] );
   auto openObject = [&]() {
      out.text( "{\"hwKey\": \"" );
      out.text( keyText, keySize );
      out.text( ", vlan: " );
   };
   VlanEntryIdMap::Pair const* d = defaults.begin();
   VlanEntryIdMap::Pair const* f = frags.begin();
   if ( d == defaults.end() && f == frags.end() ) {
      openObject();
      out.text( "none\"," );
      out.text( fieldsText, fieldsSize );
   }
   while ( d != defaults.end() || f != frags.end() ) {
      U16 const vlanId =
          ( f == frags.end() || ( d != defaults.end() && d->vlanId <= f->vlanId ) )
              ? d->vlanId
              : f->vlanId;
      openObject();
      if ( vlanId == 0 ) {
         out.character( '*' );
      } else {
         out.number( vlanId );
      }
      out.text( "\"," );
      if ( d != defaults.end() && d->vlanId == vlanId ) {
         out = Cursor( writeEntry( out.at(), 0, d->entryId ) );
         ++d;
      }
      if ( f != frags.end() && f->vlanId == vlanId ) {
         out = Cursor( writeEntry( out.at(), 1, f->entryId ) );
         ++f;
      }
      out.text( fieldsText, fieldsSize );
   }
   output( rowText_.data(), std::size_t( out.at() - rowText_.data() ) );
}

NatSliceCommandRequestSm::Ptr natSliceCommandRequestSmFactory(
    std::string const& name, Agent::AgentCommandRequest const& request,
    Fwk::Seconds quantum, Fwk::Clock::Ptr const& clock, NatWorkerSm::Ptr const& worker ) {
   return new NatSliceCommandRequestSm( name, request, quantum, clock, worker );
}

NatSliceCommandRequestSm::Ptr NatSliceCommandRequestSmIs(
    std::string const& name, Agent::AgentCommandRequest const& request,
    Fwk::Seconds quantum, Fwk::Clock::Ptr const& clock, NatWorkerSm::Ptr const& worker ) {
   return natSliceCommandRequestSmFactory( name, request, quantum, clock, worker );
}

NatCliCallback::NatCliCallback( std::string name )
    : AgentCommandCallback( std::move( name ) ) {}

Agent::AgentAsyncCommandRequestSm::Ptr NatCliCallback::createAgentAsyncCommandRequestSm(
    Agent::AgentCommandRequest const& request ) {
   // A simulated chip (a VM without the chip simulator) yields after every row.
   Fwk::Seconds const timeQuantum =
       std::getenv( "SIMULATION_VMID" ) && !std::getenv( "USE_BCMSIM" )
           ? simulatedChipQuantum
           : showQuantum;
   NAT_TRACE( 8, createFn, " command:" << request.command );
   if ( request.command.find( showCommand ) == std::string::npos ) {
      NAT_TRACE( 0, createFn, " Unknown Command!" );
      return nullptr;
   }
   NatMounter const* const natMounter = NatMounter::natMounter();
   if ( !natMounter ) {
      NAT_TRACE( 0, createFn, " invalid natMounter" );
      return nullptr;
   }
   NatWorkerRootSm const* const rootSm = natMounter->rootSm();
   if ( !rootSm ) {
      NAT_TRACE( 0, createFn, " invalid rootSm" );
      return nullptr;
   }
   FWK_ASSERT( rootSm->natWorkerSms() == 1 );
   return NatSliceCommandRequestSmIs( "natSliceCommandRequestSm", request, timeQuantum,
                                      Fwk::activityManager().clockPtr(),
                                      rootSm->natWorkerSm().begin()->second );
}

}  // namespace Corvane
