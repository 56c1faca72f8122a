// unlocked_access.h: plain fields that are also read without their lock.
//
// Both sides are relaxed atomics: one atomic side alone is still a data race. Writers hold the field's lock as well,
// unless the field is a lone counter. The field stays a plain field, so no layout depends on this.
#pragma once

template <class T>
inline T readUnlocked(const T &field)
{
    return __atomic_load_n(&field, __ATOMIC_RELAXED);
}

template <class T, class V>
inline void writeUnlocked(T &field, V value)
{
    __atomic_store_n(&field, static_cast<T>(value), __ATOMIC_RELAXED);
}
