// The show command "ShowCorvaneNatSlice": the callback and the request that writes the
// entry-id table with its shadow data; see NatShowCommand.h for the output format and
// the slicing rules.

#include "CorvaneNat/NatShowCommand.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstdlib>
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

// The most characters of an integer type in decimal (with its sign).
template <class T>
constexpr std::size_t maxDigits() {
   return std::numeric_limits<T>::digits10 + 1 + ( std::numeric_limits<T>::is_signed );
}

template <class T>
void appendNumber( std::string& out, T value ) {
   char text[24];
   std::to_chars_result const r = std::to_chars( text, text + sizeof( text ), value );
   boundedCopy( out, text, std::size_t( r.ptr - text ), maxDigits<T>() );
}

// The dotted form of an address, "10.0.0.1".
void appendIp( std::string& out, U32 ip ) {
   char text[16];
   char* p = text;
   for ( int shift = 24; shift >= 0; shift -= 8 ) {
      p = std::to_chars( p, text + sizeof( text ), ( ip >> shift ) & 0xff ).ptr;
      if ( shift != 0 && p < text + sizeof( text ) ) {
         *p++ = '.';
      }
   }
   boundedCopy( out, text, std::size_t( p - text ), 15 );
}

// The key's text form, as NatHwKey::stringValue() gives it, without building strings.
void appendKeyText( std::string& out, Oro::NatHwKey const& key ) {
   static char const* const labels[4] = {
       " old sip: ", " new sip: ", " old dip: ", " new dip: " };
   Wirel::IpAndPort const fields[4] = { key.srcIpAndPortOld(), key.srcIpAndPortNew(),
                                        key.dstIpAndPortOld(), key.dstIpAndPortNew() };
   out += "type: ";
   out += Oro::valueToStrep( key.keyType() );
   out += ',';
   for ( int f = 0; f < 4; ++f ) {
      if ( !fields[f].isUnset() ) {
         out += labels[f];
         appendIp( out, fields[f].ip().value() );
         out += ':';
         appendNumber( out, fields[f].port() );
         out += ',';
      }
   }
   out += " proto: ";
   appendNumber( out, unsigned( key.dynProto() ) );
   out += ", faId: ";
   appendNumber( out, key.faId() );
   out += ", aclId: ";
   appendNumber( out, key.aclId().value() );
   out += ", reverse: ";
   out += key.reverse() ? "true" : "false";
}

// "10.0.0.0/8", or "10.0.0.0/255.0.255.0" for a mask that is not a prefix.
void appendFilterAddr( std::string& out, Wirel::IpAddrWithFullMask const& addr ) {
   appendIp( out, addr.address().value() );
   out += '/';
   if ( addr.maskIsContiguous() ) {
      appendNumber( out, addr.prefixLength() );
   } else {
      appendIp( out, addr.mask() );
   }
}

}  // namespace

void boundedCopy( std::string& out, char const* value, std::size_t size,
                  std::size_t bound ) {
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
   out.append( value, size );
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
   std::size_t bucket = 0;
   EntryIdTable::const_local_iterator row;
   if ( entryBookmark_ == Oro::NatHwKey() ) {
      NAT_TRACE( 8, handleAsyncCommandFn, " Initial iter" );
      output( "[" );
      walkedLayouts_.clear();
      if ( table && table->bucketCount() ) {
         row = table->bucketBegin( 0 );
      }
   } else {
      NAT_TRACE( 8, handleAsyncCommandFn, " Restarting from: " << entryBookmark_ );
      if ( !table || !table->entryHas( entryBookmark_ ) ) {
         NAT_TRACE( 8, handleAsyncCommandFn, " No longer in table, stopping execution" );
         output( "]" );
         executionCompletedIs( true );
         return;
      }
      // The layout the bookmark was left in is known when this walk left it there.
      bool const reordered =
          walkTable_ && walkBookmark_ == entryBookmark_ &&
          ( walkTable_.ptr() != table || walkBuckets_ != table->bucketCount() );
      if ( reordered ) {
         walkedLayouts_.push_back(
             Layout{ walkBuckets_, EntryIdTable::bucketOf( walkBookmark_, walkBuckets_ ),
                     std::move( walkBucketKeys_ ) } );
         walkBucketKeys_.clear();
         row = table->bucketBegin( 0 );
      } else {
         bucket = EntryIdTable::bucketOf( entryBookmark_, table->bucketCount() );
         row = table->bucketBegin( bucket );
         while ( row != table->bucketEnd( bucket ) && row->key() != entryBookmark_ ) {
            ++row;
         }
         FWK_ASSERT( row != table->bucketEnd( bucket ) );
         ++row;
      }
   }

   if ( table && table->bucketCount() ) {
      walkTable_ = table;
      walkBuckets_ = table->bucketCount();
      pipeLayoutIs();
      Oro::NatHwShadow const* const shadow = worker_->shadow();
      for ( ;; ) {
         for ( ; row != table->bucketEnd( bucket ); ++row ) {
            Oro::NatHwKey const& key = row->key();
            if ( !walkedLayouts_.empty() && walkedBefore( key ) ) {
               continue;
            }
            NAT_TRACE( 9, handleAsyncCommandFn, " Iterating on: " << key );
            writeRow( *row, shadow );
            if ( shouldYield() ) {
               yieldAt( *table, bucket, key );
               return;
            }
         }
         if ( ++bucket == walkBuckets_ ) {
            break;
         }
         row = table->bucketBegin( bucket );
      }
   }
   NAT_TRACE( 8, handleAsyncCommandFn, " Execution complete" );
   output( "]" );
   executionCompletedIs( true );
}

bool NatSliceCommandRequestSm::walkedBefore( Oro::NatHwKey const& key ) const {
   for ( Layout const& layout : walkedLayouts_ ) {
      std::size_t const bucket = EntryIdTable::bucketOf( key, layout.buckets );
      if ( bucket < layout.bucket ||
           ( bucket == layout.bucket &&
             std::find( layout.written.begin(), layout.written.end(), key ) !=
                 layout.written.end() ) ) {
         return true;
      }
   }
   return false;
}

void NatSliceCommandRequestSm::yieldAt( EntryIdTable const& table, std::size_t bucket,
                                        Oro::NatHwKey const& key ) {
   NAT_TRACE( 8, handleAsyncCommandFn, " Yielding after processing: " << key );
   entryBookmarkIs( key );
   walkBookmark_ = key;
   walkBucketKeys_.clear();
   for ( auto row = table.bucketBegin( bucket ); row != table.bucketEnd( bucket );
         ++row ) {
      walkBucketKeys_.push_back( row->key() );
      if ( row->key() == key ) {
         break;
      }
   }
}

void NatSliceCommandRequestSm::pipeLayoutIs() {
   copiesPerPipe_.clear();
   pipeIds_ = false;
   CorvaneTcamGroupManager const* const tcam = worker_->tcamGroupManager();
   if ( !tcam ) {
      return;
   }
   U32 const pipes = tcam->getNumPipe( worker_->unit() );
   U32 places = 0;
   for ( U32 pipe = 0; pipe < pipes; ++pipe ) {
      copiesPerPipe_.push_back( tcam->getNumCopiesPerPipe( worker_->unit(), pipe ) );
      places += copiesPerPipe_.back();
   }
   pipeIds_ = places > 1;
}

void NatSliceCommandRequestSm::appendEntry( U32 index, U32 entryId ) {
   rowText_ += "\"eid";
   appendNumber( rowText_, index );
   rowText_ += "\": \"";
   appendNumber( rowText_, entryId );
   if ( pipeIds_ && entryId != 0 ) {
      CorvaneTcamGroupManager const* const tcam = worker_->tcamGroupManager();
      for ( U32 pipe = 0; pipe < copiesPerPipe_.size(); ++pipe ) {
         rowText_ += " pipe";
         appendNumber( rowText_, pipe );
         rowText_ += ':';
         for ( U32 copy = 0; copy < copiesPerPipe_[pipe]; ++copy ) {
            rowText_ += ' ';
            appendNumber( rowText_,
                          tcam->getPipeEntryId( worker_->unit(), entryId, pipe, copy ) );
         }
      }
   }
   rowText_ += "\",";
}

// One object per VLAN of the row (see the header): the key and VLAN, the VLAN's
// entries, then the fields of the key and its shadow entry, which every object of the
// row shares.
void NatSliceCommandRequestSm::writeRow( EntryIdTableEntry const& row,
                                         Oro::NatHwShadow const* shadow ) {
   Oro::NatHwKey const& key = row.key();
   keyText_.clear();
   appendKeyText( keyText_, key );

   fieldsText_.clear();
   fieldsText_ += "\"aclId\": ";
   appendNumber( fieldsText_, key.aclId().value() );
   fieldsText_ += ',';
   if ( Oro::NatHwShadowEntry const* const entry =
            shadow ? shadow->entry( key ) : nullptr ) {
      Oro::NatHwData const& data = entry->data();
      fieldsText_ += "\"filterAddr\": \"";
      appendFilterAddr( fieldsText_, data.filterAddr() );
      fieldsText_ += "\",\"uid\": ";
      appendNumber( fieldsText_, entry->uid().value() );
      fieldsText_ += ",\"dirty\": ";
      appendNumber( fieldsText_, static_cast<S32>( entry->dirty() ) );
      fieldsText_ += ",\"nextHop\": ";
      appendNumber( fieldsText_, data.nextHopId() );
      fieldsText_ += ",\"multicast\": ";
      fieldsText_ += data.multicast() ? '1' : '0';
      fieldsText_ += ',';
   }
   fieldsText_ += "},";

   rowText_.clear();
   auto openObject = [this]() {
      rowText_ += "{\"hwKey\": \"";
      rowText_ += keyText_;
      rowText_ += ", vlan: ";
   };
   VlanEntryIdMap::Pair const* d = row.defaultEntryIds().begin();
   VlanEntryIdMap::Pair const* const dEnd = row.defaultEntryIds().end();
   VlanEntryIdMap::Pair const* f = row.fragEntryIds().begin();
   VlanEntryIdMap::Pair const* const fEnd = row.fragEntryIds().end();
   if ( d == dEnd && f == fEnd ) {
      openObject();
      rowText_ += "none\",";
      rowText_ += fieldsText_;
   }
   while ( d != dEnd || f != fEnd ) {
      U16 const vlanId = ( f == fEnd || ( d != dEnd && d->vlanId <= f->vlanId ) )
                             ? d->vlanId
                             : f->vlanId;
      openObject();
      if ( vlanId == 0 ) {
         rowText_ += '*';
      } else {
         appendNumber( rowText_, vlanId );
      }
      rowText_ += "\",";
      if ( d != dEnd && d->vlanId == vlanId ) {
         appendEntry( 0, d->entryId );
         ++d;
      }
      if ( f != fEnd && f->vlanId == vlanId ) {
         appendEntry( 1, f->entryId );
         ++f;
      }
      rowText_ += fieldsText_;
   }
   output( rowText_ );
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
