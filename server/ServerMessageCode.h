#pragma once

// The message codes of the link to the central server, the first u32 of every frame body.
// Some codes travel in both directions with different bodies.
namespace ServerCode
{
enum : int
{
    Login = 1,
    SetWaitPort = 2,
    UserAddress = 3,
    AddUser = 5,
    UntrackUser = 6,
    UserStatus = 7,
    RoomChat = 13,
    EnterRoom = 14,
    LeaveRoom = 15,
    UserJoinedRoom = 16,
    UserLeftRoom = 17,
    ConnectToPeer = 18,
    PrivateChat = 22,
    PrivateChatAck = 23,
    FileSearch = 26,
    UserStats = 36,
    RoomList = 64,
    DNetHasParent = 71,
    PrivilegedUsers = 69,
    DNetParentMinSpeed = 83,
    DNetParentSpeedConnectionRatio = 84,
    DNetMessage = 93,
    DNetCanParent = 100,
    DNetPossibleParents = 102,
    WishListSearch = 103,
    WishListWait = 104,
    UploadSpeed = 121,
    DNetLevel = 126,
    DNetGroupLeader = 127,
    DNetDeliveryReport = 128,
    ChildDepth = 129,
    DNetReset = 130,
    CantConnectToPeer = 1001
};
} // namespace ServerCode
