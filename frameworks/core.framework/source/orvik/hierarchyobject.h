#pragma once
/// @file
/// Hierarchies: a node has a parent and, for each branch, an ordered list of children.

#include "orvik/basearray.h"
#include "orvik/objectbase.h"

namespace orvik {

class HierarchyObjectInterface;
using HierarchyObjectRef = Ref<HierarchyObjectInterface>;

/// A parent owns its children; a child refers to its parent weakly. Implementing classes need no code of their own: the
/// base does the work, for every branch. The root of a long chain can be dropped without deep recursion.
class ORVIK_API HierarchyObjectInterface : public virtual Object {
    ORVIK_INTERFACE(HierarchyObjectInterface, "net.orvik.interface.hierarchyobject");

public:
    ~HierarchyObjectInterface() override;

    /// First child in the lowest branch that has one; with a branch, first child there.
    HierarchyObjectRef GetFirst() const;
    HierarchyObjectRef GetFirstChild(Int branch) const;
    /// Children of a branch in order. An unknown branch is empty.
    Block<const HierarchyObjectRef> GetChildren(Int branch) const noexcept;
    Int GetBranchCount() const noexcept;
    HierarchyObjectRef GetParent() const { return _parent.Get(); }
    /// The parent's branch that holds this, or -1.
    Int GetBranch() const noexcept;
    /// Next sibling in the parent's branch, or null.
    HierarchyObjectRef GetNext() const;

    static constexpr Int kMaxBranches = 1024;

    /// Places `child` behind `predecessor`, or at the end of the branch without one. Illegal argument: null child,
    /// a branch outside 0 ... kMaxBranches - 1, a child that has a parent, this itself or one of its ancestors, a
    /// predecessor that is not in the branch.
    Result<void> AddChild(Int branch, const HierarchyObjectRef& child, const HierarchyObjectRef& predecessor = nullptr);
    /// Removes a child; illegal argument when it is not a child of this.
    Result<void> RemoveChild(const HierarchyObjectRef& child);

private:
    struct Branches;

    static void Destroy(Branches* branches) noexcept;

    Branches* _branches = nullptr;  ///< made with the first child
    WeakRef<HierarchyObjectInterface> _parent;
    Int _branch = -1;
    mutable Int _indexHint = 0;  ///< where this stood among its siblings when last looked for
};

}  // namespace orvik
