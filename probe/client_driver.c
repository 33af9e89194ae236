/* KolmProbe.sys: a driver that imports from Kolm.sys, with a control device through which the
 * console program has it call the exports. */
#include <ntddk.h>
#include <ntimage.h>

#include "probe/client.h"

#define POOL_TAG 0x72506D4B /* reads KmPr */

/* Keeps sizes in 32 bits. */
#define LARGEST_TRANSFER (64u << 20)

/* The kernel exports these; the headers lack them. */
NTSYSAPI PVOID NTAPI RtlPcToFileHeader(PVOID address, PVOID* image);
NTSYSAPI PVOID NTAPI RtlImageDirectoryEntryToData(PVOID image, BOOLEAN mapped, USHORT entry,
                                                  PULONG size);

typedef VOID NTAPI StackCallout(PVOID argument);
NTSYSAPI NTSTATUS NTAPI KeExpandKernelStackAndCalloutEx(StackCallout* work, PVOID argument,
                                                        SIZE_T bytes, BOOLEAN mayWait,
                                                        PVOID context);

typedef NTSTATUS NTAPI DllInitializeRoutine(PUNICODE_STRING serviceKey);
typedef NTSTATUS NTAPI DllUnloadRoutine(void);

static UNICODE_STRING deviceName = RTL_CONSTANT_STRING(L"\\Device\\KolmProbe");
static UNICODE_STRING linkName = RTL_CONSTANT_STRING(L"\\DosDevices\\KolmProbe");

static PVOID ImageOf(void* routine) {
  PVOID image = NULL;
  RtlPcToFileHeader(routine, &image);
  return image;
}

static PIMAGE_EXPORT_DIRECTORY ExportsOf(PVOID image) {
  ULONG size = 0;
  return RtlImageDirectoryEntryToData(image, TRUE, IMAGE_DIRECTORY_ENTRY_EXPORT, &size);
}

/* Looks a name up in Kolm.sys, for the two exports that its import library keeps back. */
static void* FindExport(const char* name) {
  UCHAR* image = ImageOf((void*)Kolm_VE_InitVideoEffect);
  PIMAGE_EXPORT_DIRECTORY exports = ExportsOf(image);
  const ULONG* names = (const ULONG*)(image + exports->AddressOfNames);
  const USHORT* ordinals = (const USHORT*)(image + exports->AddressOfNameOrdinals);
  const ULONG* functions = (const ULONG*)(image + exports->AddressOfFunctions);
  ULONG i;

  for (i = 0; i < exports->NumberOfNames; ++i) {
    if (strcmp((const char*)image + names[i], name) == 0) return image + functions[ordinals[i]];
  }
  return NULL;
}

/* Reports the image that the imports lead to, how many of them lead there, its number of exports.
 */
static NTSTATUS CheckLoad(ClientReply* reply) {
  void* const imports[] = {
      (void*)Kolm_BG_AlphaBlending,      (void*)Kolm_BG_LoadBackground,
      (void*)Kolm_BG_LoadFromFile,       (void*)Kolm_BG_ScaleBackground,
      (void*)Kolm_FT_DoFaceTracking,     (void*)Kolm_FT_InitFaceTracking,
      (void*)Kolm_FT_UninitFaceTracking, (void*)Kolm_VE_GetParameterDefault,
      (void*)Kolm_VE_GetParameterRange,  (void*)Kolm_VE_InitVideoEffect,
      (void*)Kolm_VE_RunVideoEffect,     (void*)Kolm_VE_UninitVideoEffect,
  };
  UCHAR* image = ImageOf(imports[0]);
  PIMAGE_EXPORT_DIRECTORY exports = ExportsOf(image);
  const char* name = (const char*)image + exports->Name;
  ULONG i;

  for (i = 0; i < RTL_NUMBER_OF(imports); ++i) {
    if (ImageOf(imports[i]) == image) ++reply->values[0];
  }
  reply->values[1] = exports->NumberOfNames;
  for (i = 0; i < sizeof reply->imageName - 1 && name[i] != 0; ++i) reply->imageName[i] = name[i];
  return STATUS_SUCCESS;
}

/* What the kernel's loader does when it loads Kolm.sys for its first client. Wine's leaves it out.
 */
static NTSTATUS CallDllInitialize(ClientReply* reply) {
  UNICODE_STRING key =
      RTL_CONSTANT_STRING(L"\\Registry\\Machine\\System\\CurrentControlSet\\Services\\Kolm");
  DllInitializeRoutine* routine = (DllInitializeRoutine*)FindExport("DllInitialize");

  if (routine == NULL) return STATUS_ENTRYPOINT_NOT_FOUND;
  reply->results[0] = routine(&key);
  return STATUS_SUCCESS;
}

static NTSTATUS CallDllUnload(ClientReply* reply) {
  DllUnloadRoutine* routine = (DllUnloadRoutine*)FindExport("DllUnload");

  if (routine == NULL) return STATUS_ENTRYPOINT_NOT_FOUND;
  reply->results[0] = routine();
  return STATUS_SUCCESS;
}

/* Stands in for ZwCreateFile in Kolm.sys. Wine's kernel has no \SystemRoot. */
static NTSTATUS NTAPI CreateFileInWindows(PHANDLE file, ACCESS_MASK access,
                                          POBJECT_ATTRIBUTES attributes, PIO_STATUS_BLOCK ioStatus,
                                          PLARGE_INTEGER allocationSize, ULONG fileAttributes,
                                          ULONG share, ULONG disposition, ULONG options,
                                          PVOID eaBuffer, ULONG eaLength) {
  const UNICODE_STRING root = RTL_CONSTANT_STRING(L"\\SystemRoot\\");
  const UNICODE_STRING folder = RTL_CONSTANT_STRING(L"\\??\\C:\\windows\\");
  OBJECT_ATTRIBUTES redirected = *attributes;
  UNICODE_STRING rest = *attributes->ObjectName;
  WCHAR buffer[128];
  UNICODE_STRING name = {0, sizeof buffer, buffer};

  if (RtlPrefixUnicodeString(&root, &rest, TRUE)) {
    rest.Buffer += root.Length / sizeof(WCHAR);
    rest.Length -= root.Length;
    if (!NT_SUCCESS(RtlAppendUnicodeStringToString(&name, &folder)) ||
        !NT_SUCCESS(RtlAppendUnicodeStringToString(&name, &rest))) {
      return STATUS_NAME_TOO_LONG;
    }
    redirected.ObjectName = &name;
  }
  return ZwCreateFile(file, access, &redirected, ioStatus, allocationSize, fileAttributes, share,
                      disposition, options, eaBuffer, eaLength);
}

/* What the module holds of the pool, how many blocks it has asked for, and which are refused. */
static ULONG blocksHeld, blocksAsked, firstRefused, lastRefused;

/* Stand in for the pool calls in Kolm.sys. */
static PVOID NTAPI AllocateAndCount(POOL_TYPE type, SIZE_T bytes, ULONG tag) {
  PVOID block;

  ++blocksAsked;
  if (firstRefused != 0 && blocksAsked >= firstRefused && blocksAsked <= lastRefused) return NULL;
  block = ExAllocatePoolWithTag(type, bytes, tag);
  if (block != NULL) ++blocksHeld;
  return block;
}

static VOID NTAPI FreeAndCount(PVOID block) {
  --blocksHeld;
  ExFreePool(block);
}

/* Kolm.sys goes together with this driver, its only client, so that nothing is put back. */
static NTSTATUS RedirectImport(const char* name, void* routine) {
  UCHAR* image = ImageOf((void*)Kolm_BG_LoadBackground);
  ULONG size = 0;
  const IMAGE_IMPORT_DESCRIPTOR* module =
      RtlImageDirectoryEntryToData(image, TRUE, IMAGE_DIRECTORY_ENTRY_IMPORT, &size);

  for (; module->Name != 0; ++module) {
    const IMAGE_THUNK_DATA64* names =
        (const IMAGE_THUNK_DATA64*)(image + module->OriginalFirstThunk);
    IMAGE_THUNK_DATA64* slots = (IMAGE_THUNK_DATA64*)(image + module->FirstThunk);
    for (; names->u1.AddressOfData != 0; ++names, ++slots) {
      const IMAGE_IMPORT_BY_NAME* import =
          (const IMAGE_IMPORT_BY_NAME*)(image + names->u1.AddressOfData);
      if (strcmp((const char*)import->Name, name) == 0) {
        slots->u1.Function = (ULONG_PTR)routine;
        return STATUS_SUCCESS;
      }
    }
  }
  return STATUS_ENTRYPOINT_NOT_FOUND;
}

static BOOLEAN refusesStack;

/* Stands in for KeExpandKernelStackAndCalloutEx in Kolm.sys. */
static NTSTATUS NTAPI ExpandOrRefuse(StackCallout* work, PVOID argument, SIZE_T bytes,
                                     BOOLEAN mayWait, PVOID context) {
  if (refusesStack) return STATUS_NO_MEMORY;
  return KeExpandKernelStackAndCalloutEx(work, argument, bytes, mayWait, context);
}

static NTSTATUS RedirectImports(void) {
  NTSTATUS status = RedirectImport("ZwCreateFile", (void*)CreateFileInWindows);

  if (NT_SUCCESS(status)) {
    status = RedirectImport("ExAllocatePoolWithTag", (void*)AllocateAndCount);
  }
  if (NT_SUCCESS(status)) status = RedirectImport("ExFreePool", (void*)FreeAndCount);
  if (NT_SUCCESS(status)) {
    status = RedirectImport("KeExpandKernelStackAndCalloutEx", (void*)ExpandOrRefuse);
  }
  return status;
}

/* More than a kernel stack has, so that going too deep is measured and not just noticed. */
#define MEASURED_STACK (64 * 1024)
#define STACK_MARK 0xA5

/* Both lie right below the frame of the caller, where its next call goes. Their own frames, which
 * hold no more than a few registers, are passed over. */
#define OWN_FRAME 128

/* From the top down, since the stack grows page by page. */
static __attribute__((noinline)) void MarkStack(void) {
  volatile UCHAR* top = (volatile UCHAR*)__builtin_frame_address(0);
  ULONG depth;

  for (depth = OWN_FRAME; depth < MEASURED_STACK; ++depth) *(top - depth) = STACK_MARK;
}

/* The depth of the lowest byte that has lost its mark. */
static __attribute__((noinline)) ULONG MeasureStack(void) {
  const volatile UCHAR* top = (const volatile UCHAR*)__builtin_frame_address(0);
  ULONG depth = MEASURED_STACK - 1;

  while (depth > OWN_FRAME && *(top - depth) == STACK_MARK) --depth;
  return depth;
}

static void CallAndMeasure(const ClientRequest* request, const UCHAR* source, ClientReply* reply,
                           UCHAR* destination) {
  MarkStack();
  CallKolm(request, source, reply, destination);
  reply->stackBytes = MeasureStack();
}

/* The request and its bytes arrive in the buffer in which the reply and its bytes go back. */
static NTSTATUS HandleRequest(UCHAR* buffer, ULONG inputSize, ULONG outputSize, ULONG* replySize) {
  ClientRequest request;
  ClientReply* reply;
  ULONG64 sourceSize, destinationSize;
  NTSTATUS status = STATUS_SUCCESS;

  if (inputSize < sizeof request) return STATUS_INVALID_PARAMETER;
  RtlCopyMemory(&request, buffer, sizeof request);
  if (request.width > 0xFFFF || request.height > 0xFFFF) return STATUS_INVALID_PARAMETER;
  sourceSize = ClientSourceBytes(&request);
  destinationSize = ClientDestinationBytes(&request);
  if (destinationSize > LARGEST_TRANSFER || inputSize != sizeof request + sourceSize) {
    return STATUS_INVALID_PARAMETER;
  }
  if (outputSize < sizeof *reply + destinationSize) return STATUS_BUFFER_TOO_SMALL;
  *replySize = (ULONG)(sizeof *reply + destinationSize);

  reply = ExAllocatePoolWithTag(NonPagedPool, *replySize, POOL_TAG);
  if (reply == NULL) return STATUS_INSUFFICIENT_RESOURCES;
  RtlZeroMemory(reply, *replySize);
  switch (request.operation) {
    case kClientLoadCheck:
      status = CheckLoad(reply);
      break;
    case kClientLoaded:
      status = CallDllInitialize(reply);
      break;
    case kClientUnloading:
      status = CallDllUnload(reply);
      break;
    case kClientPool:
      reply->values[0] = blocksHeld;
      reply->values[1] = blocksAsked;
      break;
    case kClientPoolLimit:
      firstRefused = request.parameter == 0 ? 0 : blocksAsked + request.parameter;
      lastRefused = request.item == 0 ? MAXULONG : firstRefused;
      break;
    case kClientStackLimit:
      refusesStack = request.parameter != 0;
      break;
    case kClientTrackBegin:
    case kClientTrack:
    case kClientTrackEnd:
    case kClientTrackRounds:
      if (request.item > (request.operation == kClientTrackRounds ? 2 : 1)) {
        status = STATUS_INVALID_PARAMETER;
        break;
      }
      CallAndMeasure(&request, buffer + sizeof request, reply, (UCHAR*)(reply + 1));
      break;
    default:
      CallKolm(&request, buffer + sizeof request, reply, (UCHAR*)(reply + 1));
  }
  RtlCopyMemory(buffer, reply, *replySize);
  ExFreePoolWithTag(reply, POOL_TAG);
  return status;
}

static NTSTATUS Complete(PIRP irp, NTSTATUS status, ULONG information) {
  irp->IoStatus.Status = status;
  irp->IoStatus.Information = information;
  IoCompleteRequest(irp, IO_NO_INCREMENT);
  return status;
}

static NTSTATUS NTAPI OnOpenOrClose(PDEVICE_OBJECT device, PIRP irp) {
  UNREFERENCED_PARAMETER(device);
  return Complete(irp, STATUS_SUCCESS, 0);
}

static NTSTATUS NTAPI OnControl(PDEVICE_OBJECT device, PIRP irp) {
  PIO_STACK_LOCATION stack = IoGetCurrentIrpStackLocation(irp);
  NTSTATUS status;
  ULONG replySize = 0;

  UNREFERENCED_PARAMETER(device);
  if (stack->Parameters.DeviceIoControl.IoControlCode != CLIENT_CONTROL_CODE) {
    return Complete(irp, STATUS_INVALID_DEVICE_REQUEST, 0);
  }
  status = HandleRequest(irp->AssociatedIrp.SystemBuffer,
                         stack->Parameters.DeviceIoControl.InputBufferLength,
                         stack->Parameters.DeviceIoControl.OutputBufferLength, &replySize);
  return Complete(irp, status, NT_SUCCESS(status) ? replySize : 0);
}

static VOID NTAPI OnUnload(PDRIVER_OBJECT driver) {
  IoDeleteSymbolicLink(&linkName);
  IoDeleteDevice(driver->DeviceObject);
}

NTSTATUS NTAPI DriverEntry(PDRIVER_OBJECT driver, PUNICODE_STRING registryPath) {
  PDEVICE_OBJECT device;
  NTSTATUS status;

  UNREFERENCED_PARAMETER(registryPath);
  status = RedirectImports();
  if (!NT_SUCCESS(status)) return status;
  status = IoCreateDevice(driver, 0, &deviceName, FILE_DEVICE_UNKNOWN, 0, FALSE, &device);
  if (!NT_SUCCESS(status)) return status;
  status = IoCreateSymbolicLink(&linkName, &deviceName);
  if (!NT_SUCCESS(status)) {
    IoDeleteDevice(device);
    return status;
  }
  driver->MajorFunction[IRP_MJ_CREATE] = OnOpenOrClose;
  driver->MajorFunction[IRP_MJ_CLOSE] = OnOpenOrClose;
  driver->MajorFunction[IRP_MJ_DEVICE_CONTROL] = OnControl;
  driver->DriverUnload = OnUnload;
  return STATUS_SUCCESS;
}
