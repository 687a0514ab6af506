#pragma once

#include <cstddef>
#include <memory>
#include <new>
#include <vector>

// Tree nodes of item sets are small, many and of one size: a large share holds millions. A
// free list carved from big blocks serves them faster and without a header per node. Blocks
// are kept for the life of the thread. Sanitizer builds use the plain allocator, so that every
// node stays visible to the address checker.
template <std::size_t t_size, std::size_t t_align>
class NodePool
{
public:
    static void* Allocate()
    {
        Pool& l_pool = Instance();
        if (!l_pool.mp_free)
            l_pool.Grow();
        Node* lp_node = l_pool.mp_free;
        l_pool.mp_free = lp_node->mp_next;
        return lp_node;
    }

    static void Free(void* ip_memory)
    {
        Pool& l_pool = Instance();
        Node* lp_node = static_cast<Node*>(ip_memory);
        lp_node->mp_next = l_pool.mp_free;
        l_pool.mp_free = lp_node;
    }

private:
    union Node
    {
        Node* mp_next;
        alignas(t_align) unsigned char m_bytes[t_size];
    };

    struct Pool
    {
        static constexpr std::size_t c_nodesPerBlock = 4096;
        std::vector<std::unique_ptr<Node[]>> m_blocks;
        Node* mp_free = nullptr;

        void Grow()
        {
            m_blocks.emplace_back(new Node[c_nodesPerBlock]);
            Node* lp_block = m_blocks.back().get();
            for (std::size_t l_n = 0; l_n < c_nodesPerBlock; ++l_n)
            {
                lp_block[l_n].mp_next = mp_free;
                mp_free = &lp_block[l_n];
            }
        }
    };

    static Pool& Instance()
    {
        // Never destroyed: sets held by static objects may outlive the thread's other data.
        thread_local Pool* lp_pool = new Pool;
        return *lp_pool;
    }
};

template <class T>
class PoolAllocator
{
public:
    using value_type = T;

    PoolAllocator() noexcept = default;
    template <class U>
    PoolAllocator(PoolAllocator<U> const&) noexcept
    {
    }

    T* allocate(std::size_t i_count)
    {
#if !defined(__SANITIZE_ADDRESS__)
        if (i_count == 1)
            return static_cast<T*>(NodePool<sizeof(T), alignof(T)>::Allocate());
#endif
        return std::allocator<T>().allocate(i_count);
    }

    void deallocate(T* ip_memory, std::size_t i_count) noexcept
    {
#if !defined(__SANITIZE_ADDRESS__)
        if (i_count == 1)
        {
            NodePool<sizeof(T), alignof(T)>::Free(ip_memory);
            return;
        }
#endif
        std::allocator<T>().deallocate(ip_memory, i_count);
    }

    friend bool operator==(PoolAllocator const&, PoolAllocator const&) noexcept { return true; }
};
