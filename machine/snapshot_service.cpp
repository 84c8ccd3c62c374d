#include "machine/snapshot_service.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "machine/backup_components.h"
#include "machine/machine.h"
#include "machine/text.h"

namespace machine {
namespace {

SnapshotService* currentService = nullptr;

constexpr uint32_t kSnapshotCreated = 12;  // VSS_SS_CREATED
constexpr char16_t kMachineName[] = u"KESTREL";
constexpr kk::Guid kProvider = {0x70726F76, 0x6964, 0x6572, {0x80, 0, 0, 0, 0, 0, 0, 1}};

}  // namespace

SnapshotService::SnapshotService(Machine& machine)
    : machine_(machine), operations_{{"GatherWriterMetadata", {}}, {"PrepareForBackup", {}}, {"DoSnapshotSet", {}}}
{
    currentService = this;
}

SnapshotService::~SnapshotService()
{
    if (currentService == this) {
        currentService = nullptr;
    }
}

SnapshotService& SnapshotService::Current()
{
    if (currentService == nullptr) {
        std::abort();
    }
    return *currentService;
}

AsyncBehaviour& SnapshotService::Operation(const std::string& name)
{
    return operations_.at(name);
}

std::vector<const Snapshot*> SnapshotService::Snapshots() const
{
    std::vector<const Snapshot*> all;
    for (const auto& components : components_) {
        for (const Snapshot& snapshot : components->Snapshots()) {
            if (snapshot.view != nullptr) {
                all.push_back(&snapshot);
            }
        }
    }
    return all;
}

std::u16string SnapshotService::DeviceName(uint32_t number)
{
    return u"\\Device\\HarddiskVolumeShadowCopy" + Utf16(std::to_string(number));
}

HResult SnapshotService::CreateComponents(kk::VssBackupComponents** components)
{
    if (components == nullptr) {
        return kInvalidArgument;
    }
    if (!apartments.IsUsable()) {
        return kComNotInitialized;
    }
    if (creation.result < 0) {
        return creation.result;
    }
    *components = nullptr;
    if (creation.givesObject) {
        components_.push_back(std::make_unique<BackupComponents>(*this));
        *components = components_.back().get();
    }
    return creation.result;
}

kk::VssAsync* SnapshotService::MakeAsync(const std::string& operation, std::shared_ptr<bool> waited)
{
    asyncs_.push_back(std::make_unique<AsyncObject>(*this, operation, std::move(waited)));
    return asyncs_.back().get();
}

kk::Guid SnapshotService::NextId()
{
    return {nextId_++, 0x736E, 0x6170, {0x80, 0, 0, 0, 0, 0, 0, 1}};
}

bool SnapshotService::SetIsInProgress() const
{
    return std::any_of(components_.begin(), components_.end(),
                       [](const auto& components) { return components->HasSetInProgress(); });
}

void SnapshotService::Take(Snapshot& snapshot)
{
    snapshot.number = nextNumber_++;
    snapshot.view = std::make_shared<SnapshotView>(snapshot.volume);
    snapshot.answers = std::make_shared<VolumeAnswers>(*snapshot.volume->Answers());
    const auto device = std::make_shared<VolumeViewDevice>(machine_.switches, snapshot.view, snapshot.answers);
    machine_.names.AddDevice(DeviceName(snapshot.number), device);
}

void SnapshotService::NotifyTaken()
{
    if (onSnapshotTaken_) {
        onSnapshotTaken_();
    }
}

void SnapshotService::Delete(Snapshot& snapshot)
{
    if (snapshot.view != nullptr) {
        machine_.names.RemoveDevice(DeviceName(snapshot.number));
        snapshot.view->Discard();
        snapshot.view.reset();
    }
}

void SnapshotService::FillProperties(const Snapshot& snapshot, kk::VssSnapshotProperties& properties)
{
    std::optional<std::u16string> deviceName = u"\\\\?\\GLOBALROOT" + DeviceName(snapshot.number);
    if (const auto told = deviceNames_.find(snapshot.volume->Path()); told != deviceNames_.end()) {
        deviceName = told->second;
    }
    properties = {};
    properties.snapshotId = snapshot.id;
    properties.snapshotSetId = snapshot.setId;
    const auto all = Snapshots();
    properties.snapshotsCount = static_cast<int32_t>(std::count_if(
        all.begin(), all.end(), [&snapshot](const Snapshot* other) { return other->setId == snapshot.setId; }));
    properties.snapshotDeviceObject = deviceName ? GiveString(*deviceName) : nullptr;
    properties.originalVolumeName = GiveString(snapshot.volume->Path());
    properties.originatingMachine = GiveString(kMachineName);
    properties.serviceMachine = GiveString(kMachineName);
    properties.providerId = kProvider;
    properties.creationTimestamp = machine_.clock.Now();
    properties.status = kSnapshotCreated;
}

void SnapshotService::FreeProperties(kk::VssSnapshotProperties* properties)
{
    if (properties == nullptr) {
        return;
    }
    TakeBackString(properties->snapshotDeviceObject);
    TakeBackString(properties->originalVolumeName);
    TakeBackString(properties->originatingMachine);
    TakeBackString(properties->serviceMachine);
    TakeBackString(properties->exposedName);
    TakeBackString(properties->exposedPath);
}

void SnapshotService::Uninitialize()
{
    if (!apartments.Uninitialize()) {
        machine_.Report("CoUninitialize without a CoInitializeEx before it");
        return;
    }
    const bool objectsLive = std::any_of(components_.begin(), components_.end(),
                                         [](const auto& components) { return components->References() != 0; });
    if (objectsLive && !apartments.IsUsable()) {
        machine_.Report("CoUninitialize while snapshot objects are alive");
    }
}

std::vector<std::string> SnapshotService::Imbalances() const
{
    std::vector<std::string> lines = apartments.Imbalances();
    for (const auto& components : components_) {
        if (components->References() != 0) {
            lines.push_back("an IVssBackupComponents has " + std::to_string(components->References()) + " references");
        }
    }
    for (const auto& async : asyncs_) {
        if (async->References() != 0) {
            lines.push_back("an IVssAsync of " + async->Operation() + " has " + std::to_string(async->References()) +
                            " references");
        }
    }
    for (const auto& [address, text] : strings_) {
        lines.push_back("a string of snapshot properties was not freed: " + Utf8(address));
    }
    return lines;
}

char16_t* SnapshotService::GiveString(const std::u16string& text)
{
    auto copy = std::make_unique<char16_t[]>(text.size() + 1);
    std::memcpy(copy.get(), text.c_str(), (text.size() + 1) * sizeof(char16_t));
    char16_t* const address = copy.get();
    strings_.emplace(address, std::move(copy));
    return address;
}

void SnapshotService::TakeBackString(char16_t*& text)
{
    if (text != nullptr && strings_.erase(text) == 0) {
        machine_.Report("VssFreeSnapshotProperties frees a string that the service did not give, or has freed");
    }
    text = nullptr;
}

}  // namespace machine
