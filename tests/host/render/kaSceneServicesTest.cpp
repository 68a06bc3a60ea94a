#include "OSGAnimNodeBase.h"
#include "OSGChangeList.h"
#include "OSGNodeCores.h"
#include "kaAnimManager.h"
#include "kaCameraService.h"
#include "kaKernelServiceFactory.h"
#include "kaNodeUtils.h"
#include "kaQRPCConverter.h"
#include "kaRTSceneHandler.h"

#include <gtest/gtest.h>

TEST(kaSceneServices, IdsTurnIntoNodesWhileTheyLive) {
    osg::NodePtr node = osg::Node::create(osg::Group::create(), "n");
    const uint64_t id = kaQRPCConverter::nodeToId(node);
    EXPECT_EQ(kaQRPCConverter::idToNode(id), node);
    EXPECT_EQ(kaQRPCConverter::idToNode(id | (uint64_t(7) << 32)), node) << "the low 32 bits count";
    osg::GroupPtr notANode = osg::Group::create();
    EXPECT_FALSE(kaQRPCConverter::idToNode(notANode->getId()));
    node = nullptr;
    osg::ChangeList::getCurrent()->clear();
    EXPECT_FALSE(kaQRPCConverter::idToNode(id));
}

TEST(kaSceneServices, CameraServiceIsFoundByClassName) {
    EXPECT_FALSE(kaKernelServiceFactory::get<kaCameraService>("kaCameraService"));
    auto service = std::make_shared<kaCameraService>();
    kaKernelServiceFactory::registerService("kaCameraService", service);
    auto found = kaKernelServiceFactory::get<kaCameraService>("kaCameraService");
    ASSERT_EQ(found, service);
    EXPECT_FALSE(found->getActiveCamera().isValid());
    osg::NodePtr camera = osg::Node::create(osg::CameraCore::create(), "Front");
    found->setActiveCamera(camera);
    EXPECT_EQ(kaQRPCConverter::idToNode(found->getActiveCamera().getId()), camera);
    kaKernelServiceFactory::registerService("kaCameraService", nullptr);
    EXPECT_FALSE(kaKernelServiceFactory::getService("kaCameraService"));
}

TEST(kaSceneServices, SceneNodesComeFromTheSceneRoot) {
    EXPECT_TRUE(kaNodeUtils::getSceneNodes().empty());
    osg::NodePtr root = osg::Node::create(osg::Group::create(), "root");
    root->addChild(osg::Node::create(osg::Group::create(), "child"));
    kaNodeUtils::setSceneRoot(root);
    EXPECT_EQ(kaNodeUtils::getSceneNodes().size(), 2u);
    kaNodeUtils::setSceneRoot(nullptr);
}

TEST(kaSceneServices, RaytracingSettingsAreNeverNull) {
    ASSERT_TRUE(kaRTSceneHandler::getRaytracingSettingsAttachment());
    osg::StringAttributeMapPtr settings = osg::StringAttributeMap::create();
    settings->setAttribute("Samples", "256");
    kaRTSceneHandler::setRaytracingSettingsAttachment(settings);
    EXPECT_EQ(kaRTSceneHandler::getRaytracingSettingsAttachment(), settings);
    kaRTSceneHandler::setRaytracingSettingsAttachment(nullptr);
    EXPECT_TRUE(kaRTSceneHandler::getRaytracingSettingsAttachment()->getAttributes().empty());
}

TEST(kaSceneServices, NamesOfNodesAndAnimations) {
    osg::NodePtr node = osg::Node::create(osg::Group::create(), "Ground");
    osg::TransformPtr place = osg::Transform::create(osg::Matrix());
    osg::TransformAnimationPtr animation = osg::TransformAnimation::create(place, "Drive");
    EXPECT_EQ(kaNodeUtils::getName(osg::FieldContainerPtr(node.get())), "Ground");
    EXPECT_EQ(kaNodeUtils::getName(osg::FieldContainerPtr(animation.get())), "Drive");
    EXPECT_EQ(kaNodeUtils::getName(osg::FieldContainerPtr(place.get())), "");
    EXPECT_EQ(kaNodeUtils::getName(osg::FieldContainerPtr()), "");
}

TEST(kaSceneServices, TheFrameCanMoveWithoutEvaluatingAnimations) {
    osg::TransformPtr place = osg::Transform::create(osg::Matrix());
    osg::TransformAnimationPtr animation = osg::TransformAnimation::create(place, "Drive");
    animation->addKey({0.0f, {0, 0, 0}, 0.0f});
    animation->addKey({10.0f, {10, 0, 0}, 0.0f});
    osg::ChangeList::getCurrent()->clear();
    kaAnimManager::setCurrentFrameNoEvaluation(5, false);
    EXPECT_EQ(kaAnimManager::getCurrentFrame(), 5);
    EXPECT_EQ(animation->getCurrentFrame(), 0) << "not told without notify";
    EXPECT_EQ(animation->getLastEvaluationTime(), -1.0f) << "never evaluated";
    kaAnimManager::setCurrentFrameNoEvaluation(7, true);
    EXPECT_EQ(animation->getCurrentFrame(), 7);
    EXPECT_EQ(osg::ChangeList::getCurrent()->getChangedMask(animation.get()),
              osg::AnimNodeBase::CurrentFrameFieldMask);
    EXPECT_EQ(animation->getLastEvaluationTime(), -1.0f);
    osg::ChangeList::getCurrent()->clear();
    kaAnimManager::setCurrentFrame(0, false, false);
}
