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

// Writes text into storage from `at` up to `end`. The storage is sized from the bounds
// of what goes into it; every append is still checked against the end, so a miscounted
// bound stops the process instead of writing past the storage.
class ShowCursor {
public:
   ShowCursor( char* at, char* end ) : at_( at ), end_( end ) {}
   char* at() const { return at_; }

   template <std::size_t N>
   void text( char const ( &literal )[N] ) {
      text( literal, N - 1 );
   }
   void text( char const* text, std::size_t size ) {
      room( size );
      std::memcpy( at_, text, size );
      at_ += size;
   }
   void character( char c ) {
      room( 1 );
      *at_++ = c;
   }
   template <class T>
   void number( T value ) {
      std::to_chars_result const written = std::to_chars( at_, end_, value );
      FWK_ASSERT_TEXT( written.ec == std::errc(), "the show text fits its storage" );
      at_ = written.ptr;
   }
   // The dotted form of an address, "10.0.0.1"; 15 characters at most.
   void ip( U32 value ) {
      for ( int shift = 24; shift >= 0; shift -= 8 ) {
         number( ( value >> shift ) & 0xff );
         if ( shift != 0 ) {
            character( '.' );
         }
      }
   }
   // A value of fixed maximum size `bound`, through boundedCopy.
   void bounded( char const* value, std::size_t size, std::size_t bound ) {
      room( size < bound ? size : bound );
      at_ = boundedCopy( at_, value, size, bound );
   }

private:
   void room( std::size_t size ) const {
      FWK_ASSERT_TEXT( size <= std::size_t( end_ - at_ ),
                       "the show text fits its storage" );
   }

   char* at_;
   char* end_;
};

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

// The key's text form, as NatHwKey::stringValue() gives it; keyTextMax at most.
void writeKeyText( ShowCursor& out, Oro::NatHwKey const& key ) {
   static char const* const labels[4] = {
       " old sip: ", " new sip: ", " old dip: ", " new dip: " };
   Wirel::IpAndPort const fields[4] = { key.srcIpAndPortOld(), key.srcIpAndPortNew(),
                                        key.dstIpAndPortOld(), key.dstIpAndPortNew() };
   out.text( "type: " );
   std::string const type = Oro::valueToStrep( key.keyType() );
   out.bounded( type.data(), type.size(), keyTypeTextMax );
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
void writeFilterAddr( ShowCursor& out, Wirel::IpAddrWithFullMask const& addr ) {
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
void writeFields( ShowCursor& out, Oro::NatHwKey const& key,
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
   EntryIdTableEntry const* row = nullptr;
   if ( entryBookmark_ == Oro::NatHwKey() ) {
      NAT_TRACE( 8, handleAsyncCommandFn, " Initial iter" );
      output( "[" );
      // The table this command shows, held until it ends.
      table_ = worker_->entryIdTable();
      if ( table_ ) {
         row = table_->first();
      }
   } else {
      NAT_TRACE( 8, handleAsyncCommandFn, " Restarting from: " << entryBookmark_ );
      if ( !table_ ) {
         table_ = worker_->entryIdTable();  // a bookmark set before the first slice
      }
      EntryIdTableEntry const* const bookmark =
          table_ ? table_->row( entryBookmark_ ) : nullptr;
      if ( !bookmark ) {
         NAT_TRACE( 8, handleAsyncCommandFn, " No longer in table, stopping execution" );
         output( "]" );
         executionCompletedIs( true );
         return;
      }
      row = EntryIdTable::next( *bookmark );
   }

   if ( row ) {
      pipeLayoutIs();
      Oro::NatHwShadow const* const shadow = worker_->shadow();
      // What the next rows show of their shadow entries, read together: each lookup
      // waits on memory, and side by side their loads overlap. Nothing changes the
      // tables during a slice.
      std::array<NatShowShadowFields, shadowLookahead> shadowAhead;
      std::size_t looked = 0;
      std::size_t used = 0;
      for ( ; row; row = EntryIdTable::next( *row ) ) {
         if ( used == looked ) {
            used = looked = 0;
            for ( EntryIdTableEntry const* ahead = row; ahead && looked < shadowLookahead;
                  ahead = EntryIdTable::next( *ahead ) ) {
               shadowAhead[looked++] =
                   shadowFieldsOf( shadow ? shadow->entry( ahead->key() ) : nullptr );
            }
         }
         Oro::NatHwKey const& key = row->key();
         NAT_TRACE( 9, handleAsyncCommandFn, " Iterating on: " << key );
         writeRow( *row, shadowAhead[used++] );
         if ( shouldYield() ) {
            NAT_TRACE( 8, handleAsyncCommandFn, " Yielding after processing: " << key );
            entryBookmarkIs( key );
            return;
         }
      }
   }
   NAT_TRACE( 8, handleAsyncCommandFn, " Execution complete" );
   output( "]" );
   executionCompletedIs( true );
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

void NatSliceCommandRequestSm::writeEntry( ShowCursor& out, U32 index,
                                           U32 entryId ) const {
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
}

// One object per VLAN of the row (see the header): the key and VLAN, the VLAN's
// entries, then the fields of the key and its shadow entry, which every object of the
// row shares. The row's text is sized from the bounds of its parts and written in
// place, each part checked against its storage's end.
void NatSliceCommandRequestSm::writeRow( EntryIdTableEntry const& row,
                                         NatShowShadowFields const& shadow ) {
   Oro::NatHwKey const& key = row.key();
   char keyText[keyTextMax];
   ShowCursor keyOut( keyText, keyText + sizeof( keyText ) );
   writeKeyText( keyOut, key );
   std::size_t const keySize = std::size_t( keyOut.at() - keyText );
   char fieldsText[fieldsTextMax];
   ShowCursor fieldsOut( fieldsText, fieldsText + sizeof( fieldsText ) );
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
   ShowCursor out( &rowText_[0], &rowText_[0] + rowText_.size() );
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
         writeEntry( out, 0, d->entryId );
         ++d;
      }
      if ( f != frags.end() && f->vlanId == vlanId ) {
         writeEntry( out, 1, f->entryId );
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
