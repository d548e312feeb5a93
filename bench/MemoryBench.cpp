// The plug-in's own heap bytes per installed single-VLAN key.
//
// This program replaces the global operator new and delete with a counting allocator.
// Every block carries a small header with its size and its owner, decided when it is
// allocated, and only while a benchmark has counting switched on (around the commits):
// the allocator walks the call stack and gives the block to the first frame that is
// neither the allocator nor the C and C++ runtime. A block whose frame lies in
// libCorvaneNatSliceWorker is the plug-in's; one whose frame lies in the platform,
// natsim or this program is not. So containers of the plug-in (entry-id table nodes and
// buckets, strings it builds) count as the plug-in's even when libstdc++ allocates for
// them, while the shadow, the uid tables, the chip's entries and the status tables that
// the plug-in writes through platform calls are the platform's. The live bytes of the
// plug-in after N keys, divided by N, are its bytes per key; the header is not counted
// (requested sizes only), nor is malloc's own overhead.
//
// Ownership follows the block where the plug-in hands it over: the description string
// that the plug-in builds for an entry is taken over by the chip's entry (the entry
// manager keeps it, not the plug-in), so after the commits each chip entry's description
// block is given to the platform.
//
// As a cross-check the benchmark also reports the bytes the worker's entry-id table
// gives back when it is emptied at the end (the table's rows, without its buckets).

#include <benchmark/benchmark.h>
#include <dlfcn.h>
#include <execinfo.h>
#include <link.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>

#include "bench/BenchSupport.h"

namespace {

enum Owner : U32 { uncounted, plugin, others };

struct Header {
   std::size_t size;
   U32 owner;
   U32 pad;
};
constexpr std::size_t headerSize = 16;
static_assert( sizeof( Header ) <= headerSize, "header" );

struct Range {
   std::uintptr_t first = 0;
   std::uintptr_t last = 0;
   bool has( std::uintptr_t a ) const { return a >= first && a < last; }
};

bool counting = false;
thread_local bool inAllocator = false;
Range pluginText;
Range runtimeText[4];  // libstdc++, libc, libgcc_s, this program's allocator
U64 live[3] = { 0, 0, 0 };
U64 allocations[3] = { 0, 0, 0 };

bool isRuntime( std::uintptr_t a ) {
   for ( Range const& r : runtimeText ) {
      if ( r.has( a ) ) {
         return true;
      }
   }
   return false;
}

__attribute__( ( noinline ) ) Owner ownerOfCaller() {
   void* frames[48];
   int const n = ::backtrace( frames, 48 );
   for ( int i = 1; i < n; ++i ) {
      auto const a = reinterpret_cast<std::uintptr_t>( frames[i] );
      if ( isRuntime( a ) ) {
         continue;
      }
      return pluginText.has( a ) ? plugin : others;
   }
   return others;
}

__attribute__( ( noinline ) ) void* allocate( std::size_t size ) {
   void* block = std::malloc( size + headerSize );
   if ( !block ) {
      throw std::bad_alloc();
   }
   auto* header = static_cast<Header*>( block );
   header->size = size;
   header->owner = uncounted;
   if ( counting && !inAllocator ) {
      inAllocator = true;
      header->owner = ownerOfCaller();
      inAllocator = false;
      live[header->owner] += size;
      ++allocations[header->owner];
   }
   return static_cast<char*>( block ) + headerSize;
}

void release( void* p ) {
   if ( !p ) {
      return;
   }
   auto* header = reinterpret_cast<Header*>( static_cast<char*>( p ) - headerSize );
   if ( header->owner != uncounted ) {
      live[header->owner] -= header->size;
   }
   std::free( header );
}

// Gives a block that the plug-in allocated to the platform, which now holds it.
void handOver( void const* p ) {
   auto* header = reinterpret_cast<Header*>(
       const_cast<char*>( static_cast<char const*>( p ) ) - headerSize );
   if ( header->owner == plugin ) {
      live[plugin] -= header->size;
      live[others] += header->size;
      header->owner = others;
   }
}

// Hands over the description blocks of the chip's entries on unit 1 (a description
// that fits the string itself, 15 characters in libstdc++, has no block).
void handOverDescriptions( Bench::NatBench& nat ) {
   Chip::FieldProcessor const& fp = nat.platform().chip().unit( 1 )->fieldProcessor();
   for ( U32 id : fp.entryIds() ) {
      std::string const& description = fp.entry( id )->description();
      if ( description.capacity() > 15 ) {
         handOver( description.data() );
      }
   }
}

// The text (executable segments) of the loaded object whose name contains `name`.
Range textOf( char const* name ) {
   struct Search {
      char const* name;
      Range range;
   } search{ name, {} };
   dl_iterate_phdr(
       []( dl_phdr_info* info, std::size_t, void* data ) {
          auto* s = static_cast<Search*>( data );
          if ( !info->dlpi_name || !std::strstr( info->dlpi_name, s->name ) ) {
             return 0;
          }
          for ( int i = 0; i < info->dlpi_phnum; ++i ) {
             ElfW( Phdr ) const& ph = info->dlpi_phdr[i];
             if ( ph.p_type == PT_LOAD && ( ph.p_flags & PF_X ) ) {
                s->range.first = info->dlpi_addr + ph.p_vaddr;
                s->range.last = s->range.first + ph.p_memsz;
                return 1;
             }
          }
          return 0;
       },
       &search );
   return search.range;
}

// The allocator's own functions, the frames between backtrace and the caller: they
// lie together in this source's text.
Range allocatorText() {
   typedef void* ( *New )( std::size_t );
   std::uintptr_t const addresses[] = {
       reinterpret_cast<std::uintptr_t>( &ownerOfCaller ),
       reinterpret_cast<std::uintptr_t>( &allocate ),
       reinterpret_cast<std::uintptr_t>( static_cast<New>( &::operator new ) ),
       reinterpret_cast<std::uintptr_t>( static_cast<New>( &::operator new[] ) ) };
   Range r{ addresses[0], addresses[0] };
   for ( std::uintptr_t a : addresses ) {
      r.first = std::min( r.first, a );
      r.last = std::max( r.last, a + 1024 );
   }
   return r;
}

void rangesIs() {
   void* warm[4];
   ::backtrace( warm, 4 );  // loads the unwinder before anything is counted
   pluginText = textOf( "libCorvaneNatSliceWorker" );
   runtimeText[0] = textOf( "libstdc++" );
   runtimeText[1] = textOf( "libc.so" );
   runtimeText[2] = textOf( "libgcc_s" );
   runtimeText[3] = allocatorText();
}

void BM_PluginBytesPerKey( benchmark::State& state ) {
   U32 const keys = U32( state.range( 0 ) );
   rangesIs();
   if ( pluginText.first == 0 ) {
      state.SkipWithError( "libCorvaneNatSliceWorker is not loaded" );
      return;
   }
   double perKey = 0;
   double othersPerKey = 0;
   double tablePerKey = 0;
   for ( auto _ : state ) {
      Bench::NatBench nat;
      std::vector<natsim::NatRuleStep> steps;
      for ( U32 i = 0; i < keys; ++i ) {
         steps.push_back( Bench::snatRule( i ) );
      }
      U64 const pluginBefore = live[plugin];
      U64 const othersBefore = live[others];
      counting = true;
      for ( auto const& step : steps ) {
         nat.commit( step );
      }
      counting = false;
      handOverDescriptions( nat );
      perKey = double( live[plugin] - pluginBefore ) / keys;
      othersPerKey = double( live[others] - othersBefore ) / keys;
      if ( nat.worker()->entryIdTable()->entrys() != keys ) {
         state.SkipWithError( "not every key reached the entry-id table" );
      }
      U64 const tableBefore = live[plugin] + live[others];
      nat.worker()->entryIdTable()->entryDelAll();
      tablePerKey = double( tableBefore - ( live[plugin] + live[others] ) ) / keys;
   }
   state.counters["plugin_bytes_per_key"] = perKey;
   state.counters["platform_bytes_per_key"] = othersPerKey;
   state.counters["table_rows_bytes_per_key"] = tablePerKey;
   state.counters["keys"] = keys;
   state.counters["pointer_bits"] = double( sizeof( void* ) * 8 );
}

}  // namespace

void* operator new( std::size_t size ) {
   return allocate( size );
}
void* operator new[]( std::size_t size ) {
   return allocate( size );
}
void* operator new( std::size_t size, std::nothrow_t const& ) noexcept {
   try {
      return allocate( size );
   } catch ( ... ) {
      return nullptr;
   }
}
void* operator new[]( std::size_t size, std::nothrow_t const& ) noexcept {
   try {
      return allocate( size );
   } catch ( ... ) {
      return nullptr;
   }
}
void operator delete( void* p ) noexcept {
   release( p );
}
void operator delete[]( void* p ) noexcept {
   release( p );
}
void operator delete( void* p, std::size_t ) noexcept {
   release( p );
}
void operator delete[]( void* p, std::size_t ) noexcept {
   release( p );
}

BENCHMARK( BM_PluginBytesPerKey )
    ->Arg( 20000 )
    ->Iterations( 1 )
    ->Unit( benchmark::kMillisecond );
