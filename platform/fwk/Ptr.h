#pragma once

// Intrusive reference counting.
//
// An object that derives from PtrInterface carries its own count; Ptr<T> holds one
// reference, PtrConst<T> (= Ptr<T const>) one reference to a read-only view. The
// object is deleted when its last reference goes. Counts are plain integers: the agent
// runs on one thread. Building with FWK_THREAD_SAFE_PTR makes them atomic.

#include <cstddef>
#include <utility>
#ifdef FWK_THREAD_SAFE_PTR
#include <atomic>
#endif

namespace Fwk {

class PtrInterface {
public:
   PtrInterface() = default;
   // A copy is a new object: it starts without references.
   PtrInterface( PtrInterface const& ) {}
   PtrInterface& operator=( PtrInterface const& ) { return *this; }

   void newRef() const noexcept { ++references_; }
   void deleteRef() const noexcept {
      if ( --references_ == 0 ) {
         delete this;
      }
   }
   long references() const noexcept { return references_; }

protected:
   virtual ~PtrInterface() = default;

private:
#ifdef FWK_THREAD_SAFE_PTR
   mutable std::atomic<long> references_{ 0 };
#else
   mutable long references_ = 0;
#endif
};

template <class T>
class Ptr {
public:
   Ptr() noexcept = default;
   Ptr( std::nullptr_t ) noexcept {}
   Ptr( T* p ) noexcept : p_( p ) { acquire(); }
   Ptr( Ptr const& o ) noexcept : p_( o.p_ ) { acquire(); }
   Ptr( Ptr&& o ) noexcept : p_( o.p_ ) { o.p_ = nullptr; }
   template <class U>
   Ptr( Ptr<U> const& o ) noexcept : p_( o.ptr() ) {
      acquire();
   }
   ~Ptr() { release(); }

   Ptr& operator=( Ptr o ) noexcept {
      std::swap( p_, o.p_ );
      return *this;
   }

   T* ptr() const noexcept { return p_; }
   T* operator->() const noexcept { return p_; }
   T& operator*() const noexcept { return *p_; }
   explicit operator bool() const noexcept { return p_ != nullptr; }

   template <class U>
   bool operator==( Ptr<U> const& o ) const noexcept {
      return p_ == o.ptr();
   }
   template <class U>
   bool operator!=( Ptr<U> const& o ) const noexcept {
      return p_ != o.ptr();
   }
   bool operator==( std::nullptr_t ) const noexcept { return !p_; }
   bool operator!=( std::nullptr_t ) const noexcept { return p_; }

private:
   void acquire() const noexcept {
      if ( p_ ) {
         p_->newRef();
      }
   }
   void release() noexcept {
      if ( p_ ) {
         p_->deleteRef();
      }
   }
   T* p_ = nullptr;
};

template <class T>
using PtrConst = Ptr<T const>;

// Converts to a derived type; null when the object is of another type.
template <class To, class From>
Ptr<To> ptr_cast( Ptr<From> const& from ) {
   return Ptr<To>( dynamic_cast<To*>( from.ptr() ) );
}

}  // namespace Fwk
