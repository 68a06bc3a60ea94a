#include "OSGChangeList.h"
#include "OSGMaterial.h"
#include "OSGMatrix.h"
#include "OSGNode.h"
#include "OSGNodeCores.h"
#include "OSGStringAttributeMap.h"

#include <gtest/gtest.h>

#include <cmath>

using namespace osg;

class SceneGraph : public testing::Test {
protected:
    void SetUp() override { ChangeList::getCurrent()->clear(); }
    void TearDown() override { ChangeList::getCurrent()->clear(); }
};

TEST_F(SceneGraph, ChildrenParentsAndReparenting) {
    NodePtr a = Node::create(Group::create(), "a"), b = Node::create(Group::create(), "b");
    NodePtr child = Node::create(Group::create(), "child");
    a->addChild(child);
    EXPECT_EQ(child->getParent(), a.get());
    EXPECT_EQ(a->getNChildren(), 1u);
    b->addChild(child);
    EXPECT_EQ(child->getParent(), b.get());
    EXPECT_EQ(a->getNChildren(), 0u) << "a node has one parent";
    EXPECT_TRUE(b->subChild(child));
    EXPECT_FALSE(b->subChild(child));
    EXPECT_EQ(child->getParent(), nullptr);
}

TEST_F(SceneGraph, AChildOutlivesItsParentAndForgetsIt) {
    NodePtr child = Node::create();
    {
        NodePtr parent = Node::create();
        parent->addChild(child);
    }
    ChangeList::getCurrent()->clear(); // the list held the parent too
    EXPECT_EQ(child->getParent(), nullptr);
}

TEST_F(SceneGraph, ChangesAreRecordedWithTheirMasks) {
    NodePtr node = Node::create(Group::create(), "n");
    SwitchPtr choice = Switch::create();
    node->setName("renamed");
    node->setActive(false);
    node->setCore(choice);
    choice->setChoice(2);
    ChangeList* list = ChangeList::getCurrent();
    EXPECT_EQ(list->getChangedMask(node.get()),
              Node::NameFieldMask | Node::ActiveFieldMask | Node::CoreFieldMask);
    EXPECT_EQ(list->getChangedMask(choice.get()), Switch::ChoiceFieldMask);
    EXPECT_EQ(list->size(), 4u);
    list->clear();
    EXPECT_EQ(list->size(), 0u);
    EXPECT_EQ(choice->getChoice(), 2);
}

TEST_F(SceneGraph, CollectNodesIsDepthFirstFromTheRoot) {
    NodePtr root = Node::create(Group::create(), "root");
    NodePtr a = Node::create(Group::create(), "a"), b = Node::create(Group::create(), "b");
    NodePtr a1 = Node::create(Group::create(), "a1");
    root->addChild(a);
    root->addChild(b);
    a->addChild(a1);
    std::vector<std::string> names;
    for (const NodePtr& n : collectNodes(root))
        names.push_back(n->getName());
    EXPECT_EQ(names, (std::vector<std::string>{"root", "a", "a1", "b"}));
    EXPECT_TRUE(collectNodes(NodePtr()).empty());
}

TEST_F(SceneGraph, WorldMatrixCombinesTheAncestorsTransforms) {
    NodePtr root = Node::create(Transform::create(Matrix::translation(10, 0, 0)));
    NodePtr arm = Node::create(Transform::create(Matrix::rotation({0, 0, 1}, float(M_PI / 2))));
    NodePtr tip = Node::create(Transform::create(Matrix::translation(1, 0, 0)));
    root->addChild(arm);
    arm->addChild(tip);
    Pnt3f p = tip->getToWorld().transformPoint({0, 0, 0});
    EXPECT_NEAR(p.x, 10.0f, 1e-5f);
    EXPECT_NEAR(p.y, 1.0f, 1e-5f);
    EXPECT_NEAR(p.z, 0.0f, 1e-5f);
}

TEST_F(SceneGraph, ShownOnlyWhenEveryAncestorIsActive) {
    NodePtr root = Node::create(), mid = Node::create(), leaf = Node::create();
    root->addChild(mid);
    mid->addChild(leaf);
    EXPECT_TRUE(leaf->isShown());
    mid->setActive(false);
    EXPECT_FALSE(leaf->isShown());
    EXPECT_TRUE(leaf->getActive());
}

TEST_F(SceneGraph, MatrixInverseAndLookAt) {
    Matrix m =
        Matrix::translation(1, 2, 3) * Matrix::rotation({1, 1, 0}, 0.7f) * Matrix::scale(2, 3, 4);
    Matrix inverse;
    ASSERT_TRUE(m.invert(inverse));
    EXPECT_TRUE((m * inverse).equals(Matrix(), 1e-5f));
    Matrix singular = Matrix::scale(0, 1, 1);
    EXPECT_FALSE(singular.invert(inverse));

    Matrix pose = Matrix::lookAt({0, 0, 10}, {0, 0, 0}, {0, 1, 0});
    Vec3f forward = pose.transformVector({0, 0, -1});
    EXPECT_NEAR(forward.z, -1.0f, 1e-6f);
    Pnt3f eye = pose.transformPoint({0, 0, 0});
    EXPECT_NEAR(eye.z, 10.0f, 1e-6f);
}

TEST_F(SceneGraph, SwitchMaterialChoosesOneOfItsMaterials) {
    SwitchMaterialPtr paint = SwitchMaterial::create("paint");
    SimpleMaterialPtr red = SimpleMaterial::create("red"), blue = SimpleMaterial::create("blue");
    paint->addMaterial(red);
    paint->addMaterial(blue);
    EXPECT_FALSE(paint->getCurrentMaterial());
    paint->setChoice(1);
    EXPECT_EQ(paint->getCurrentMaterial(), MaterialPtr(blue));
    paint->setChoice(5);
    EXPECT_FALSE(paint->getCurrentMaterial());
    EXPECT_EQ(ChangeList::getCurrent()->getChangedMask(paint.get()) &
                  SwitchMaterial::ChoiceFieldMask,
              SwitchMaterial::ChoiceFieldMask);
}

TEST_F(SceneGraph, FactoryListsLiveContainersByType) {
    SwitchMaterialPtr a = SwitchMaterial::create("a");
    size_t before = FieldContainerFactory::the().getContainersOfType<SwitchMaterial>().size();
    {
        SwitchMaterialPtr b = SwitchMaterial::create("b");
        EXPECT_EQ(FieldContainerFactory::the().getContainersOfType<SwitchMaterial>().size(),
                  before + 1);
    }
    ChangeList::getCurrent()->clear();
    EXPECT_EQ(FieldContainerFactory::the().getContainersOfType<SwitchMaterial>().size(), before);
    EXPECT_GE(FieldContainerFactory::the().getContainersOfType<Material>().size(), 1u);
}

TEST_F(SceneGraph, StringAttributeMap) {
    StringAttributeMapPtr map = StringAttributeMap::create();
    map->setAttribute("Samples", "64");
    std::string value;
    EXPECT_TRUE(map->getAttribute("Samples", value));
    EXPECT_EQ(value, "64");
    EXPECT_FALSE(map->getAttribute("Bounces", value));
}
