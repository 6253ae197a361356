#include "orvik/hierarchyobject.h"

#include "orvik/errortypes.h"

namespace orvik {

/// The children of one object, by branch.
struct HierarchyObjectInterface::Branches {
    BaseArray<BaseArray<HierarchyObjectRef>> lists;
    Branches* nextPending = nullptr;
};

/// Dropping an object's children can destroy them, and in turn theirs. Instead of recursing, an object destroyed during
/// such a run leaves its children to the run.
void HierarchyObjectInterface::Destroy(Branches* branches) noexcept {
    static thread_local Branches* t_pending = nullptr;
    static thread_local bool t_running = false;
    branches->nextPending = t_pending;
    t_pending = branches;
    if (t_running)
        return;
    t_running = true;
    while (t_pending) {
        Branches* next = std::exchange(t_pending, t_pending->nextPending);
        next->~Branches();
        Free(next);
    }
    t_running = false;
}

HierarchyObjectInterface::~HierarchyObjectInterface() {
    if (_branches)
        Destroy(_branches);
}

HierarchyObjectRef HierarchyObjectInterface::GetFirst() const {
    for (Int branch = 0; branch < GetBranchCount(); ++branch) {
        if (HierarchyObjectRef first = GetFirstChild(branch))
            return first;
    }
    return nullptr;
}

HierarchyObjectRef HierarchyObjectInterface::GetFirstChild(Int branch) const {
    const Block<const HierarchyObjectRef> children = GetChildren(branch);
    return children.empty() ? nullptr : children.front();
}

Block<const HierarchyObjectRef> HierarchyObjectInterface::GetChildren(Int branch) const noexcept {
    if (branch < 0 || branch >= GetBranchCount())
        return {};
    return std::as_const(_branches->lists[branch]).ToBlock();
}

Int HierarchyObjectInterface::GetBranchCount() const noexcept { return _branches ? _branches->lists.GetCount() : 0; }

Int HierarchyObjectInterface::GetBranch() const noexcept { return GetParent() ? _branch : -1; }

HierarchyObjectRef HierarchyObjectInterface::GetNext() const {
    const HierarchyObjectRef parent = GetParent();
    if (!parent)
        return nullptr;
    const Block<const HierarchyObjectRef> siblings = parent->GetChildren(_branch);
    size_t index = static_cast<size_t>(_indexHint);
    if (index >= siblings.size() || siblings[index].GetPointer() != this) {
        index = 0;
        while (index < siblings.size() && siblings[index].GetPointer() != this)
            ++index;
        _indexHint = static_cast<Int>(index);
    }
    if (index + 1 >= siblings.size())
        return nullptr;
    siblings[index + 1]->_indexHint = static_cast<Int>(index + 1);  // walking along the siblings stays cheap
    return siblings[index + 1];
}

Result<void> HierarchyObjectInterface::AddChild(Int branch, const HierarchyObjectRef& child,
                                                const HierarchyObjectRef& predecessor) {
    if (IsAbsent())
        return Unbound();
    if (!child)
        return IllegalArgumentError("There is no child to add.");
    if (branch < 0 || branch >= kMaxBranches)
        return IllegalArgumentError("There is no branch @.", branch);
    if (child->GetParent())
        return IllegalArgumentError("The child has a parent.");
    if (child.GetPointer() == this)
        return IllegalArgumentError("An object cannot be its own child.");
    if (child->GetBranchCount() > 0) {  // without children it cannot be an ancestor
        for (HierarchyObjectRef ancestor = GetParent(); ancestor; ancestor = ancestor->GetParent()) {
            if (ancestor == child)
                return IllegalArgumentError("An object cannot hang below itself.");
        }
    }
    if (!_branches) {
        void* memory = Allocate(sizeof(Branches));
        if (!memory)
            return OutOfMemoryError();
        _branches = new (memory) Branches;
    }
    if (branch >= _branches->lists.GetCount())
        TRY(_branches->lists.Resize(branch + 1));
    BaseArray<HierarchyObjectRef>& list = _branches->lists[branch];
    Int index = list.GetCount();
    if (predecessor) {
        index = 0;
        while (index < list.GetCount() && list[index] != predecessor)
            ++index;
        if (index == list.GetCount())
            return IllegalArgumentError("The predecessor is not in branch @.", branch);
        ++index;
    }
    TRY(list.Insert(index, child));
    child->_parent = HierarchyObjectRef(this);
    child->_branch = branch;
    child->_indexHint = index;
    return {};
}

Result<void> HierarchyObjectInterface::RemoveChild(const HierarchyObjectRef& child) {
    if (IsAbsent())
        return Unbound();
    if (!child || child->GetParent().GetPointer() != this)
        return IllegalArgumentError("The object to remove is not a child of this one.");
    BaseArray<HierarchyObjectRef>& list = _branches->lists[child->_branch];
    // The argument may be the list's own reference.
    const HierarchyObjectRef kept = child;  // NOLINT(performance-unnecessary-copy-initialization)
    kept->_parent = HierarchyObjectRef();
    kept->_branch = -1;
    for (Int i = 0; i < list.GetCount(); ++i) {
        if (list[i] == kept)
            return list.Erase(i), Result<void>();
    }
    return UnexpectedError("A child is missing in the list of its parent.");
}

}  // namespace orvik
