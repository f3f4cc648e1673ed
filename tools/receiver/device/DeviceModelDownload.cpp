// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/receiver/device/DeviceModel.h"
#include "tools/receiver/device/Messages.h"

namespace veltra::receiver {

void DeviceModel::loadFilter (Conversation& conversation, const veltraio::LoadFilter& message)
{
    device (message.deviceindex()).memory.begin (lastDownload + 1, message);
    conversation.download = ++lastDownload;
    conversation.downloadDevice = message.deviceindex();
    conversation.downloadSlot = message.slotindex();
}

void DeviceModel::addChannel (Conversation& conversation, const veltraio::FilterChannel& message)
{
    // The message names no slot: it belongs to the filter that the session loads.
    if (conversation.download == 0)
        throw Refusal ("Filter channel before a filter was loaded");

    device (conversation.downloadDevice).memory.addChannel (conversation.download, conversation.downloadSlot, message);
}

void DeviceModel::addBlock (Conversation& conversation, const veltraio::FilterData& message)
{
    if (conversation.download == 0)
        throw Refusal ("Filter data before a filter was loaded");

    noteCompletion (conversation, device (message.deviceindex()).memory.addBlock (conversation.download, message));
}

void DeviceModel::addChunk (Conversation& conversation, const veltraio::FilterDataChunk& message)
{
    if (conversation.download == 0)
        throw Refusal ("Filter data chunk before a filter was loaded");

    noteCompletion (conversation, device (message.deviceindex()).memory.addChunk (conversation.download, message));
}

void DeviceModel::noteCompletion (const Conversation& conversation, bool isComplete)
{
    if (! isComplete || ! onDownload)
        return;

    const auto index = conversation.downloadDevice;
    const auto slot = conversation.downloadSlot;
    afterwards = [this, index, slot, held = devices[index].memory.slots()[slot]] { onDownload (index, slot, held); };
}

void DeviceModel::cancelDownload (Conversation& conversation, const veltraio::DownloadCancelled& message)
{
    // A session has one download under way at most, and hosts send 0 for both numbers whatever they load: so the
    // numbers have to exist, and what is cancelled is what this session loads.
    device (message.deviceindex()).memory.requireSlot (message.slotindex());

    if (conversation.download == 0)
        throw Refusal ("No download is under way");

    device (conversation.downloadDevice).memory.cancel (conversation.download, conversation.downloadSlot);
    conversation.download = 0;
}

void DeviceModel::removeFilter (Conversation&, const veltraio::RemoveFilter& message)
{
    device (message.deviceindex()).memory.remove (message.slotindex());
}

}
