// EventObject and ResourceData: the host's class-registered, memory-reporting resource.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include "qn_core/core_base_type.h"

class QN_EXPORT EventObject : public CoreCustomData {
public:
    const CoreClassInfo& get_class_info() const override;
    static const CoreClassInfo& class_info();
};

class QN_EXPORT ResourceData : public EventObject {
public:
    ResourceData() = default;
    ResourceData(const ResourceData& other) : EventObject(other), m_name(other.m_name), m_hash_key(other.m_hash_key) {}
    ResourceData& operator=(const ResourceData& other);
    ~ResourceData() override;

    const CoreClassInfo& get_class_info() const override;
    static const CoreClassInfo& class_info();

    // A key that the owner gives to tell contents apart; 0 until then.
    virtual std::uint64_t get_hash_key() const { return m_hash_key; }
    virtual bool is_serializable() const { return false; }
    // Both return success; a resource that is not serializable writes and reads nothing.
    virtual bool serialize(std::string& bytes) const;
    virtual bool deserialize(const std::string& bytes);
    // A new object of the same class, owned by the caller, or null when the class has no copy.
    virtual ResourceData* get_copy() const { return nullptr; }

    const CoreString& get_name() const { return m_name; }
    void set_name(const CoreString& name) { m_name = name; }
    void set_hash_key(const std::uint64_t& key) { m_hash_key = key; }

    // Tells the owner that get_memory_size changed, as when a sample was loaded lazily. Any thread; const because lazy
    // caches call it.
    void advert_memory_changed() const { m_memory_changes.fetch_add(1, std::memory_order_relaxed); }
    // How often the memory size changed since construction.
    unsigned int get_memory_change_count() const { return m_memory_changes.load(std::memory_order_relaxed); }

private:
    CoreString m_name;
    std::uint64_t m_hash_key = 0;
    mutable std::atomic<unsigned int> m_memory_changes{0};
};
