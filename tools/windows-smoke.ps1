<#
.SYNOPSIS
Runs KestrelkitCore.dll on real Windows, on scratch virtual disks of its own, and compares every step with what Windows
says.

.DESCRIPTION
NOT YET RUN: nobody has run this script on Windows so far; it was written where there is none. Read it before its first
run, and make that run on a machine that may be lost, such as a virtual machine with a checkpoint.

For an administrator in 64-bit Windows PowerShell 5.1 on Windows 10, 11 or Server:

    powershell -NoProfile -ExecutionPolicy Bypass -File windows-smoke.ps1 -Dll C:\kestrelkit\KestrelkitCore.dll

It makes a new folder with three growing VHDX files, works on these disks and on images of them alone, and removes
everything at the end, also after errors and Ctrl+C. Before each call that writes, the disk is looked up by its file
and must be a file-backed virtual disk of the size and GPT identifier that were noted when it was made. At the first
doubt the run ends. The restart of the machine, KkReboot, is never called.

Each check prints a line that begins with PASS or FAIL. A line that begins with NOTE tells an outcome that the public
header allows but that somebody should look at. The exit code is 0 when nothing failed, else 1.

.PARAMETER Dll
The library to test. Needed unless the steps are only listed.

.PARAMETER Work
A folder that does not exist yet, on a local NTFS volume with 8 GiB free. It is created, and removed at the end.

.PARAMETER List
Lists the steps and does nothing.
#>
#Requires -Version 5.1
[CmdletBinding()]
param(
    [string] $Dll = '',
    [string] $Work = ('{0}\KestrelkitSmoke-{1}' -f $env:SystemDrive, [guid]::NewGuid().ToString('N').Substring(0, 8)),
    [switch] $List
)
Set-StrictMode -Version 1.0
$ErrorActionPreference = 'Stop'

$MiB = [int64]1048576
$PatienceSeconds = 60
$VolumeBytes = 2048 * $MiB       # of the NTFS volume that is backed up
$LargerBytes = 2304 * $MiB       # of partitions that it is put into and grows in
$SmallerBytes = 1536 * $MiB      # of the partition that it is recovered into
$Run = @{ Passed = 0; Failed = 0; Noted = 0; Doubt = $false; Made = $false }

# ---- Reports -------------------------------------------------------------------------------------------------------

function Write-Check([bool] $Holds, [string] $Text, $Seen = '') {
    if ($Holds) {
        $Run.Passed++
        Write-Host "PASS  $Text"
        return
    }
    $Run.Failed++
    Write-Host "FAIL  $Text   [$Seen]"
}

function Write-Note([string] $Text) {
    $Run.Noted++
    Write-Host "NOTE  $Text"
}

function Get-Hex([int] $Status) { '0x{0:X8}' -f $Status }

# Checks a status and ends the step when it is a failure, since what follows would be meaningless.
function Confirm-Status([string] $Call, [int] $Status) {
    Write-Check ($Status -ge 0) "$Call succeeds" (Get-Hex $Status)
    if ($Status -lt 0) { throw "$Call answered $(Get-Hex $Status)" }
}

function Stop-InDoubt([string] $Why) {
    $Run.Doubt = $true
    throw "IN DOUBT, nothing more is done: $Why"
}

# What an earlier step left, or the end of this one.
function Get-Left([string] $Key) {
    if (-not $Run.ContainsKey($Key)) { throw "an earlier step did not get as far as '$Key'" }
    $Run[$Key]
}

# Repeats a question until its answer is neither false nor empty; null when patience ends. Tables and volumes show late.
function Wait-For([scriptblock] $Question) {
    $end = (Get-Date).AddSeconds($PatienceSeconds)
    do {
        $answer = & $Question
        if ($answer) { return $answer }
        Start-Sleep -Milliseconds 500
        Update-HostStorageCache
    } while ((Get-Date) -lt $end)
    return $null
}

# ---- Scratch disks, and the proof that a disk is one of them -------------------------------------------------------

# Diskpart is told files only, never the number of a disk.
function Invoke-Diskpart([string[]] $Lines) {
    $script = Join-Path $Work 'diskpart.txt'
    Set-Content -LiteralPath $script -Value $Lines -Encoding ASCII
    $said = & "$env:SystemRoot\System32\diskpart.exe" /s $script | Out-String
    if ($LASTEXITCODE -ne 0) { throw "diskpart failed with ${LASTEXITCODE}: $said" }
}

function New-Scratch([string] $Name, [int64] $Size, [bool] $WithTable) {
    $file = Join-Path $Work "$Name.vhdx"
    if (Test-Path -LiteralPath $file) { Stop-InDoubt "$file exists already" }
    $scratch = @{ File = $file; Size = $Size; Guid = $null }
    Invoke-Diskpart @("create vdisk file=`"$file`" maximum=$($Size / $MiB) type=expandable",
        "select vdisk file=`"$file`"", 'attach vdisk')
    $null = Get-OwnNumber $scratch
    if ($WithTable) {
        $guid = [guid]::NewGuid()
        Invoke-Diskpart @("select vdisk file=`"$file`"", 'convert gpt', "uniqueid disk id=$guid")
        $scratch.Guid = $guid
        $null = Get-OwnNumber $scratch
    }
    $scratch
}

# The disks that Windows shows for a file.
function Get-DisksOfFile([string] $File) {
    @(Get-Disk | Where-Object { $_.Location -eq $File })
}

# What speaks against a scratch disk being the one that was made; empty when nothing does.
function Get-Suspicion([hashtable] $Scratch) {
    $file = $Scratch.File
    if (-not $file.StartsWith("$Work\", [StringComparison]::OrdinalIgnoreCase)) { return "$file is not ours" }
    $disks = @(Get-DisksOfFile $file)
    if ($disks.Count -ne 1) { return "$($disks.Count) disks show $file" }
    $disk = $disks[0]
    $name = "disk $($disk.Number), which shows $file,"
    if ("$($disk.BusType)" -ne 'File Backed Virtual') { return "$name is on the bus '$($disk.BusType)'" }
    if ($disk.IsBoot -or $disk.IsSystem) { return "$name is one that Windows runs from" }
    if ([int64]$disk.Size -ne $Scratch.Size) { return "$name has $($disk.Size) bytes, not $($Scratch.Size)" }
    if ($null -eq $Scratch.Guid) {
        if ("$($disk.PartitionStyle)" -ne 'RAW') { return "$name is not blank" }
    }
    elseif ("$($disk.PartitionStyle)" -ne 'GPT' -or "$($disk.Guid)" -ne $Scratch.Guid.ToString('B')) {
        return "$name is $($disk.PartitionStyle) $($disk.Guid), not $($Scratch.Guid)"
    }
    return ''
}

# The number of a scratch disk as of now, asked for immediately before each call that writes. It ends the run unless
# all that was noted of the disk still holds.
function Get-OwnNumber([hashtable] $Scratch) {
    Update-HostStorageCache
    $null = Wait-For { (Get-Suspicion $Scratch) -eq '' }
    $suspicion = Get-Suspicion $Scratch
    if ($suspicion -ne '') { Stop-InDoubt $suspicion }
    [uint32]@(Get-DisksOfFile $Scratch.File)[0].Number
}

# Of two disks with the same identifier Windows takes one offline, so only one of a family may be attached.
function Confirm-Detached([hashtable] $Scratch) {
    $gone = Wait-For { @(Get-DisksOfFile $Scratch.File).Count -eq 0 }
    if (-not $gone) { throw "$($Scratch.File) is still attached" }
}

function Dismount-Scratch([hashtable] $Scratch) {
    $null = Get-OwnNumber $Scratch
    Dismount-File $Scratch.File
    Confirm-Detached $Scratch
}

function Dismount-File([string] $File) {
    Invoke-Diskpart @("select vdisk file=`"$File`"", 'detach vdisk')
}

function Mount-Scratch([hashtable] $Scratch) {
    Invoke-Diskpart @("select vdisk file=`"$($Scratch.File)`"", 'attach vdisk')
    $null = Get-OwnNumber $Scratch
}

# ---- Partitions and volumes of scratch disks, as Windows and as the library see them -------------------------------

function Get-WindowsPartitions([uint32] $Number) {
    @(Get-Partition -DiskNumber $Number -ErrorAction SilentlyContinue |
        Where-Object { "$($_.Type)" -ne 'Extended' } | Sort-Object Offset)
}

function Get-WindowsPartition([uint32] $Number, [int64] $Offset) {
    Get-WindowsPartitions $Number | Where-Object { [int64]$_.Offset -eq $Offset }
}

function Get-OurPartition([uint32] $Number, [int64] $Offset) {
    @([KestrelkitSmoke.Core]::ListPartitions($Number)) | Where-Object { [int64]$_.StartOffset -eq $Offset }
}

# The first whole MiB behind the last partition.
function Get-FreeStart([uint32] $Number) {
    $end = $MiB
    foreach ($partition in Get-WindowsPartitions $Number) {
        $end = [Math]::Max($end, [int64]$partition.Offset + [int64]$partition.Size)
    }
    $end += $MiB - 1
    [int64]($end - $end % $MiB)
}

function Confirm-SameList([uint32] $Number, [string] $What) {
    $wanted = @(Get-WindowsPartitions $Number | ForEach-Object { "$($_.Offset)+$($_.Size)" }) -join ' '
    $seen = @([KestrelkitSmoke.Core]::ListPartitions($Number) | Sort-Object StartOffset |
        ForEach-Object { "$($_.StartOffset)+$($_.Length)" }) -join ' '
    Write-Check ($wanted -eq $seen) "$What has the partitions that Windows lists" "$seen, Windows: $wanted"
}

# Creates a partition at the end of a scratch disk, waits until its volume is there, and returns where it starts.
function New-OwnPartition([hashtable] $Scratch, [int64] $Size) {
    $number = Get-OwnNumber $Scratch
    $free = Get-FreeStart $number
    $start = [uint64]0
    $status = [KestrelkitSmoke.Core]::KkCreatePartition($number, [uint64]$free, [uint64]($Scratch.Size - $free),
        [uint64]$Size, [ref]$start)
    Confirm-Status 'KkCreatePartition' $status
    Write-Check ([int64]$start -eq $free) 'the partition starts at the first free MiB' "$start, not $free"
    $partition = Wait-For { Get-WindowsPartition $number $free }
    Write-Check ($null -ne $partition -and [int64]$partition.Size -eq $Size) 'Windows lists it with its size' $partition
    $ours = Wait-For { (Get-OurPartition $number $free).VolumePath }
    Write-Check ($null -ne $ours) 'its volume arrives'
    $free
}

# The device of a volume on a scratch disk. What the library says of the volume must be what Windows says.
function Get-OwnVolume([hashtable] $Scratch, [int64] $Offset) {
    $number = Get-OwnNumber $Scratch
    $null = Wait-For { (Get-OurPartition $number $Offset).VolumePath }
    $ours = Get-OurPartition $number $Offset
    $paths = @((Get-WindowsPartition $number $Offset).AccessPaths)
    if ($null -eq $ours -or -not $ours.VolumePath) { throw "no volume at $Offset of disk $number" }
    if ($paths -notcontains $ours.VolumePath) { Stop-InDoubt "$($ours.VolumePath) is not at $Offset of disk $number" }
    if ($ours.DeviceName -notmatch '^\\Device\\HarddiskVolume\d+$') { Stop-InDoubt "device '$($ours.DeviceName)'" }
    $ours.DeviceName
}

function Get-UnusedLetter {
    $used = [IO.Directory]::GetLogicalDrives() | ForEach-Object { $_.Substring(0, 1) }
    foreach ($letter in 'TUVWXYRSQPONM'.ToCharArray()) {
        if ($used -notcontains "$letter") { return $letter }
    }
    throw 'no drive letter is free'
}

# The letter of a volume on a scratch disk; Windows gives it one if it has none.
function Get-Letter([hashtable] $Scratch, [int64] $Offset) {
    $number = Get-OwnNumber $Scratch
    $partition = Wait-For { Get-WindowsPartition $number $Offset }
    if ($null -eq $partition) { throw "Windows lists no partition at $Offset of disk $number" }
    if (-not [char]::IsLetter([char]$partition.DriveLetter)) {
        $number = Get-OwnNumber $Scratch
        Set-Partition -DiskNumber $number -PartitionNumber $partition.PartitionNumber -NewDriveLetter (Get-UnusedLetter)
        $partition = Wait-For { Get-WindowsPartition $number $Offset |
            Where-Object { [char]::IsLetter([char]$_.DriveLetter) } }
        if ($null -eq $partition) { throw "the volume at $Offset of disk $number gets no letter" }
    }
    "$($partition.DriveLetter)"
}

function Get-Hash([string] $Path) {
    $stream = [IO.File]::OpenRead($Path)
    try { (Get-FileHash -InputStream $stream -Algorithm SHA256).Hash } finally { $stream.Dispose() }
}

function Add-Files([string] $Letter, [int[]] $Sizes) {
    $hashes = @{}
    $random = New-Object Random
    foreach ($size in $Sizes) {
        $bytes = New-Object byte[] $size
        $random.NextBytes($bytes)
        $path = "${Letter}:\file-$size.bin"
        [IO.File]::WriteAllBytes($path, $bytes)
        $hashes["file-$size.bin"] = Get-Hash $path
    }
    Write-VolumeCache -DriveLetter $Letter
    $hashes
}

# The files of a volume are those that were written to the source, and Windows finds no fault in the file system.
function Confirm-Volume([hashtable] $Scratch, [int64] $Offset, [hashtable] $Hashes, [string] $What) {
    $letter = Get-Letter $Scratch $Offset
    $ready = Wait-For { [IO.Directory]::Exists("${letter}:\") }
    Write-Check ([bool]$ready) "$What can be read as a folder"
    foreach ($name in ($Hashes.Keys | Sort-Object)) {
        $path = "${letter}:\$name"
        $hash = 'missing'
        if ([IO.File]::Exists($path)) { $hash = Get-Hash $path }
        Write-Check ($hash -eq $Hashes[$name]) "$What holds $name as it was" $hash
    }
    # Without /F it only reads. 0 means sound, 2 that it would tidy up; its words are in the system's language. What it
    # may ask about is declined.
    $said = 'n' | & "$env:SystemRoot\System32\chkdsk.exe" "${letter}:" | Out-String
    Write-Check (@(0, 2) -contains $LASTEXITCODE) "chkdsk finds $What sound" "exit code $LASTEXITCODE"
    if (@(0, 2) -notcontains $LASTEXITCODE) { Write-Host $said }
}

# An NTFS file system ends a sector, and less than a cluster, before its partition.
function Confirm-Fills([hashtable] $Scratch, [int64] $Offset, [string] $What) {
    $number = Get-OwnNumber $Scratch
    $null = Wait-For { (Get-OurPartition $number $Offset).FileSystemSize -gt 0 }
    $ours = Get-OurPartition $number $Offset
    $rest = [int64]$ours.Length - [int64]$ours.FileSystemSize
    Write-Check ($rest -ge 0 -and $rest -le 65536) "the file system fills $What" "$rest bytes are left"
}

# ---- The library ---------------------------------------------------------------------------------------------------

$Source = @'
using System;
using System.Runtime.InteropServices;
using System.Text;

namespace KestrelkitSmoke
{
    [StructLayout(LayoutKind.Sequential, Pack = 1)]
    public struct DiskInfo
    {
        public uint Number;
        public uint NotWritten4;
        public ulong Size;
        public uint SectorSize;
        public uint PartitionStyle;
        public uint PartitionCount;
        public uint NotWritten28;
    }

    [StructLayout(LayoutKind.Sequential, Pack = 1)]
    public struct PartitionInfo
    {
        public uint Number;
        public ulong StartOffset;
        public ulong Length;
        [MarshalAs(UnmanagedType.ByValArray, SizeConst = 16)] public byte[] TypeGuid;
        public byte MbrType;
        [MarshalAs(UnmanagedType.ByValArray, SizeConst = 36)] public ushort[] NameUnits;
        [MarshalAs(UnmanagedType.ByValArray, SizeConst = 4)] public ushort[] LetterUnits;
        public ulong FileSystemSize;
        [MarshalAs(UnmanagedType.ByValArray, SizeConst = 12)] public ushort[] FileSystemUnits;
        [MarshalAs(UnmanagedType.ByValArray, SizeConst = 48)] public ushort[] DeviceUnits;
        [MarshalAs(UnmanagedType.ByValArray, SizeConst = 64)] public ushort[] VolumeUnits;

        public string Name { get { return Core.Text(NameUnits); } }
        public string DriveLetter { get { return Core.Text(LetterUnits); } }
        public string FileSystem { get { return Core.Text(FileSystemUnits); } }
        public string DeviceName { get { return Core.Text(DeviceUnits); } }
        public string VolumePath { get { return Core.Text(VolumeUnits); } }
    }

    [StructLayout(LayoutKind.Sequential, Pack = 1)]
    public struct BackupResult
    {
        public uint SnapshotsRequested;
        public uint SnapshotsUsed;
        public uint PartitionsCopied;
        public uint Reserved12;
        public ulong BytesCopied;
        public uint SnapshotUsedBlockCopies;
        public uint SnapshotWholeCopies;
        public uint LiveUsedBlockCopies;
        public uint LiveWholeCopies;
        public uint RawDiskCopies;
        public uint Reserved44;
    }

    [StructLayout(LayoutKind.Sequential, Pack = 1)]
    public struct ImageInfo
    {
        public ulong VirtualSize;
        public uint LogicalSectorSize;
        public uint BlockSize;
        [MarshalAs(UnmanagedType.ByValArray, SizeConst = 16)] public byte[] DiskGuid;
        public uint PartitionCount;
        public uint PartitionStyle;
    }

    [StructLayout(LayoutKind.Sequential, Pack = 1)]
    public struct ImagePartition
    {
        public uint Number;
        public ulong Offset;
        public ulong Length;
        [MarshalAs(UnmanagedType.ByValArray, SizeConst = 16)] public byte[] TypeGuid;
        [MarshalAs(UnmanagedType.ByValArray, SizeConst = 36)] public ushort[] NameUnits;
    }

    public class Image
    {
        public ImageInfo Info;
        public ImagePartition[] Partitions;
    }

    public static class Core
    {
        const string Dll = @"@DLL@";

        [DllImport(Dll, ExactSpelling = true)]
        static extern int KkListDisks(IntPtr records, uint capacity, out uint count);
        [DllImport(Dll, ExactSpelling = true)]
        static extern int KkListPartitions(uint disk, IntPtr records, uint capacity, out uint count);
        [DllImport(Dll, ExactSpelling = true, CharSet = CharSet.Unicode)]
        static extern int KkInspectImage(string image, IntPtr info, IntPtr partitions, uint capacity, out uint count);
        [DllImport(Dll, ExactSpelling = true)]
        public static extern int KkSetDriveLetter(uint disk, ulong start, ushort letter);
        [DllImport(Dll, ExactSpelling = true, CharSet = CharSet.Unicode)]
        public static extern int KkAddMountPoint(uint disk, ulong start, string directory);
        [DllImport(Dll, ExactSpelling = true)]
        public static extern int KkCreatePartition(uint disk, ulong regionStart, ulong regionLength, ulong size,
                                                   ref ulong start);
        [DllImport(Dll, ExactSpelling = true)]
        public static extern int KkDeletePartition(uint disk, ulong start);
        [DllImport(Dll, ExactSpelling = true)]
        public static extern int KkExtendPartition(uint disk, ulong start, ulong newSize);
        [DllImport(Dll, ExactSpelling = true)]
        public static extern int KkShrinkPartition(uint disk, ulong start, ulong newSize);
        [DllImport(Dll, ExactSpelling = true, CharSet = CharSet.Unicode)]
        public static extern int KkFormatPartition(int disk, ulong start, string fileSystem, string label, int quick);
        [DllImport(Dll, ExactSpelling = true, CharSet = CharSet.Unicode)]
        public static extern int KkBackup(uint disk, string image, uint[] numbers, uint numberCount,
                                          uint usedBlocksOnly, uint omitRemove, uint useSnapshots,
                                          [MarshalAs(UnmanagedType.LPStr)] string set, uint setDiskIndex,
                                          uint setDiskCount, uint compact, ref BackupResult result);
        [DllImport(Dll, ExactSpelling = true, CharSet = CharSet.Unicode)]
        public static extern int KkMountImage(string image, ref uint disk);
        [DllImport(Dll, ExactSpelling = true, CharSet = CharSet.Unicode)]
        public static extern int KkUnmountImage(string image);
        [DllImport(Dll, ExactSpelling = true, CharSet = CharSet.Unicode)]
        static extern int KkQueryDiskImage(uint disk, out uint isImage, StringBuilder image, uint imageChars);
        [DllImport(Dll, ExactSpelling = true, CharSet = CharSet.Unicode)]
        public static extern int KkRestorePartitions(string image, string target, uint[] numbers, uint numberCount,
                                                     int writePartitionTable);
        [DllImport(Dll, ExactSpelling = true, CharSet = CharSet.Unicode)]
        public static extern int KkRestoreToFreeSpace(string image, uint number, uint disk, ulong regionStart,
                                                      ulong regionLength, int keepSourceSize);
        [DllImport(Dll, ExactSpelling = true, CharSet = CharSet.Unicode)]
        public static extern int KkRestoreToVolume(string image, uint number, string volume, uint extendFileSystem);
        [DllImport(Dll, ExactSpelling = true, CharSet = CharSet.Unicode)]
        public static extern int KkCloneVolume(string source, string target, uint extendFileSystem);
        [DllImport(Dll, ExactSpelling = true, CharSet = CharSet.Unicode)]
        public static extern int KkMountImageOverlay(string image, string overlay, ref uint disk);
        [DllImport(Dll, ExactSpelling = true, CharSet = CharSet.Unicode)]
        public static extern int KkDiscardOverlay(string overlay);
        [DllImport(Dll, ExactSpelling = true, CharSet = CharSet.Unicode)]
        public static extern int KkRecoverShrinkToFit(string image, int number, uint disk, ulong start);

        public static string Text(ushort[] units)
        {
            StringBuilder text = new StringBuilder();
            for (int i = 0; i < units.Length && units[i] != 0; ++i)
            {
                text.Append((char)units[i]);
            }
            return text.ToString();
        }

        public static DiskInfo[] ListDisks()
        {
            uint count;
            Confirm("KkListDisks", KkListDisks(IntPtr.Zero, 0, out count));
            uint capacity = count;
            IntPtr records = Zeroed(typeof(DiskInfo), capacity);
            try
            {
                Confirm("KkListDisks", KkListDisks(records, capacity, out count));
                return Read<DiskInfo>(records, Math.Min(capacity, count));
            }
            finally
            {
                Marshal.FreeHGlobal(records);
            }
        }

        public static PartitionInfo[] ListPartitions(uint disk)
        {
            uint count;
            Confirm("KkListPartitions", KkListPartitions(disk, IntPtr.Zero, 0, out count));
            uint capacity = count;
            IntPtr records = Zeroed(typeof(PartitionInfo), capacity);
            try
            {
                Confirm("KkListPartitions", KkListPartitions(disk, records, capacity, out count));
                return Read<PartitionInfo>(records, Math.Min(capacity, count));
            }
            finally
            {
                Marshal.FreeHGlobal(records);
            }
        }

        public static Image Inspect(string path)
        {
            uint count;
            Confirm("KkInspectImage", KkInspectImage(path, IntPtr.Zero, IntPtr.Zero, 0, out count));
            uint capacity = count;
            IntPtr info = Zeroed(typeof(ImageInfo), 1);
            IntPtr records = Zeroed(typeof(ImagePartition), capacity);
            try
            {
                Confirm("KkInspectImage", KkInspectImage(path, info, records, capacity, out count));
                Image image = new Image();
                image.Info = Read<ImageInfo>(info, 1)[0];
                image.Partitions = Read<ImagePartition>(records, Math.Min(capacity, count));
                return image;
            }
            finally
            {
                Marshal.FreeHGlobal(info);
                Marshal.FreeHGlobal(records);
            }
        }

        /// The file behind a disk, or null when it is no image.
        public static string ImageOfDisk(uint disk)
        {
            uint isImage;
            StringBuilder path = new StringBuilder(1024);
            Confirm("KkQueryDiskImage", KkQueryDiskImage(disk, out isImage, path, 1024));
            return isImage == 0 ? null : path.ToString();
        }

        static void Confirm(string call, int status)
        {
            if (status < 0)
            {
                throw new InvalidOperationException(call + " answered 0x" + status.ToString("X8"));
            }
        }

        static IntPtr Zeroed(Type type, uint count)
        {
            int bytes = Marshal.SizeOf(type) * (int)count;
            IntPtr block = Marshal.AllocHGlobal(Math.Max(bytes, 1));
            for (int i = 0; i < bytes; ++i)
            {
                Marshal.WriteByte(block, i, 0);
            }
            return block;
        }

        static T[] Read<T>(IntPtr block, uint count)
        {
            T[] records = new T[count];
            for (int i = 0; i < records.Length; ++i)
            {
                IntPtr at = new IntPtr(block.ToInt64() + (long)i * Marshal.SizeOf(typeof(T)));
                records[i] = (T)Marshal.PtrToStructure(at, typeof(T));
            }
            return records;
        }
    }
}
'@

function Get-RecordSize([type] $Type) { [Runtime.InteropServices.Marshal]::SizeOf([type]$Type) }

function Import-Library {
    if ('KestrelkitSmoke.Core' -as [type]) { throw 'run this in a new PowerShell: the library is loaded already' }
    $text = $Source.Replace('@DLL@', (Get-Item -LiteralPath $Dll).FullName)
    Add-Type -TypeDefinition $text -Language CSharp -IgnoreWarnings
}

# ---- The steps -----------------------------------------------------------------------------------------------------

$Steps = New-Object System.Collections.ArrayList

function Add-Step([string] $Name, [scriptblock] $Body) { $null = $Steps.Add(@{ Name = $Name; Body = $Body }) }

Add-Step 'Load the library and compare the sizes of its records' {
    Import-Library
    $sizes = [ordered]@{ DiskInfo = 32; PartitionInfo = 373; BackupResult = 48; ImageInfo = 40; ImagePartition = 108 }
    foreach ($name in $sizes.Keys) {
        $size = Get-RecordSize ("KestrelkitSmoke.$name" -as [type])
        Write-Check ($size -eq $sizes[$name]) "$name has $($sizes[$name]) bytes" $size
        if ($size -ne $sizes[$name]) { Stop-InDoubt 'records of another size would be misread' }
    }
    $null = [KestrelkitSmoke.Core]::ListDisks()
    $Run.Loaded = $true
}

Add-Step 'Make the scratch disks: a source, a blank one, and one for targets' {
    $null = Get-Left 'Loaded'
    $Run.Source = New-Scratch 'source' (4096 * $MiB) $true
    $Run.Blank = New-Scratch 'blank' (4096 * $MiB) $false
    $Run.Target = New-Scratch 'target' (12288 * $MiB) $true
    Write-Check $true 'three scratch disks are attached and recognised'
}

Add-Step 'List disks (KkListDisks)' {
    $null = Get-Left 'Target'
    $styles = @('RAW', 'MBR', 'GPT')
    $listed = @{}
    foreach ($disk in [KestrelkitSmoke.Core]::ListDisks()) { $listed[[int]$disk.Number] = $disk }
    foreach ($disk in (Get-Disk | Where-Object { $_.Number -le 31 -and $_.Size -gt 0 } | Sort-Object Number)) {
        $wanted = "$($disk.Size) $($disk.LogicalSectorSize) $($disk.PartitionStyle)"
        $ours = $listed[[int]$disk.Number]
        $seen = 'not listed'
        if ($null -ne $ours) { $seen = "$($ours.Size) $($ours.SectorSize) $($styles[[int]$ours.PartitionStyle])" }
        Write-Check ($seen -eq $wanted) "disk $($disk.Number) is listed as $wanted" $seen
    }
}

Add-Step 'List the partitions of the disk that Windows runs from, which is read only (KkListPartitions)' {
    $null = Get-Left 'Loaded'
    foreach ($disk in @(Get-Disk | Where-Object { $_.IsBoot -and $_.Number -le 31 })) {
        Confirm-SameList ([uint32]$disk.Number) "disk $($disk.Number)"
        foreach ($partition in Get-WindowsPartitions $disk.Number) {
            if ([char]::IsLetter([char]$partition.DriveLetter)) {
                $ours = Get-OurPartition $disk.Number $partition.Offset
                $letter = "$($partition.DriveLetter):"
                Write-Check ($ours.DriveLetter -eq $letter) "the partition of $letter has that letter" $ours.DriveLetter
            }
        }
    }
}

Add-Step 'Create a partition (KkCreatePartition)' {
    $start = New-OwnPartition (Get-Left 'Source') $VolumeBytes
    Confirm-SameList (Get-OwnNumber $Run.Source) 'the source'
    $Run.DataStart = $start
}

Add-Step 'Format it with NTFS (KkFormatPartition)' {
    $start = Get-Left 'DataStart'
    $number = Get-OwnNumber $Run.Source
    $status = [KestrelkitSmoke.Core]::KkFormatPartition([int]$number, [uint64]$start, 'NTFS', 'KkSmoke', 1)
    Confirm-Status 'KkFormatPartition' $status
    $letter = Get-Letter $Run.Source $start
    $volume = Get-Volume -DriveLetter $letter
    $seen = "$($volume.FileSystem) $($volume.FileSystemLabel)"
    Write-Check ($seen -eq 'NTFS KkSmoke') 'Windows sees NTFS with that label' $seen
    $ours = Get-OurPartition $number $start
    Write-Check ($ours.FileSystem -eq 'NTFS') 'the library sees NTFS' $ours.FileSystem
    Confirm-Fills $Run.Source $start 'the formatted partition'
    $Run.Formatted = $true
}

Add-Step 'Set a drive letter (KkSetDriveLetter)' {
    $null = Get-Left 'Formatted'
    $letter = Get-UnusedLetter
    $number = Get-OwnNumber $Run.Source
    $status = [KestrelkitSmoke.Core]::KkSetDriveLetter($number, [uint64]$Run.DataStart, [uint16][char]$letter)
    Confirm-Status 'KkSetDriveLetter' $status
    $now = Wait-For { "$((Get-WindowsPartition $number $Run.DataStart).DriveLetter)" -eq "$letter" }
    Write-Check ([bool]$now) "Windows has the volume under ${letter}:"
}

Add-Step 'Extend it, file system and all (KkExtendPartition)' {
    $null = Get-Left 'Formatted'
    $number = Get-OwnNumber $Run.Source
    $status = [KestrelkitSmoke.Core]::KkExtendPartition($number, [uint64]$Run.DataStart, [uint64]$LargerBytes)
    Confirm-Status 'KkExtendPartition' $status
    $now = Wait-For { [int64](Get-WindowsPartition $number $Run.DataStart).Size -eq $LargerBytes }
    Write-Check ([bool]$now) 'Windows lists the partition with its new size'
    Confirm-Fills $Run.Source $Run.DataStart 'the extended partition'
    $Run.Extended = $true
}

Add-Step 'Shrink it to what it was (KkShrinkPartition)' {
    $null = Get-Left 'Extended'
    $number = Get-OwnNumber $Run.Source
    $status = [KestrelkitSmoke.Core]::KkShrinkPartition($number, [uint64]$Run.DataStart, [uint64]$VolumeBytes)
    if ((Get-Hex $status) -eq '0xC0000021') {
        Write-Note 'the file system has something in the part that was to go, so the shrink was refused (0xC0000021)'
        $size = [int64](Get-WindowsPartition $number $Run.DataStart).Size
        Write-Check ($size -eq $LargerBytes) 'the partition stays as it was' $size
        return
    }
    Confirm-Status 'KkShrinkPartition' $status
    $now = Wait-For { [int64](Get-WindowsPartition $number $Run.DataStart).Size -eq $VolumeBytes }
    Write-Check ([bool]$now) 'Windows lists the partition with its old size'
    Confirm-Fills $Run.Source $Run.DataStart 'the shrunk partition'
}

Add-Step 'Mount it on a folder too (KkAddMountPoint)' {
    $null = Get-Left 'Formatted'
    $folder = Join-Path $Work 'mount'
    $null = [IO.Directory]::CreateDirectory($folder)
    $number = Get-OwnNumber $Run.Source
    $status = [KestrelkitSmoke.Core]::KkAddMountPoint($number, [uint64]$Run.DataStart, $folder)
    Confirm-Status 'KkAddMountPoint' $status
    $now = Wait-For { @((Get-WindowsPartition $number $Run.DataStart).AccessPaths) -contains "$folder\" }
    Write-Check ([bool]$now) 'Windows lists the folder among the ways to the volume'
    & "$env:SystemRoot\System32\mountvol.exe" $folder /D
}

Add-Step 'Create a small partition, and delete it (KkDeletePartition)' {
    $source = Get-Left 'Source'
    $start = New-OwnPartition $source (64 * $MiB)
    $number = Get-OwnNumber $source
    Confirm-Status 'KkDeletePartition' ([KestrelkitSmoke.Core]::KkDeletePartition($number, [uint64]$start))
    $gone = Wait-For { $null -eq (Get-WindowsPartition $number $start) }
    Write-Check ([bool]$gone) 'Windows does not list it any more'
    Confirm-SameList $number 'the source'
}

Add-Step 'A FAT32 volume beside it, and files on both' {
    $null = Get-Left 'Formatted'
    $fat = New-OwnPartition $Run.Source (256 * $MiB)
    $number = Get-OwnNumber $Run.Source
    $status = [KestrelkitSmoke.Core]::KkFormatPartition([int]$number, [uint64]$fat, 'FAT32', 'KKFAT', 1)
    Confirm-Status 'KkFormatPartition' $status
    $Run.DataFiles = Add-Files (Get-Letter $Run.Source $Run.DataStart) @(300, 70000, 9000000)
    $Run.FatFiles = Add-Files (Get-Letter $Run.Source $fat) @(40000)
    Confirm-Volume $Run.Source $Run.DataStart $Run.DataFiles 'the NTFS source'
    Confirm-Volume $Run.Source $fat $Run.FatFiles 'the FAT32 source'
    $Run.FatStart = $fat
}

function Backup-Source([string] $Name, [int] $UsedBlocks, [int] $Snapshots) {
    foreach ($start in @($Run.DataStart, (Get-Left 'FatStart'))) {
        Write-VolumeCache -DriveLetter (Get-Letter $Run.Source $start)
    }
    $number = Get-OwnNumber $Run.Source
    $path = Join-Path $Work $Name
    $result = New-Object KestrelkitSmoke.BackupResult
    $status = [KestrelkitSmoke.Core]::KkBackup($number, $path, $null, 0, $UsedBlocks, 0, $Snapshots, 'kestrelkit-smoke',
        0, 1, 0, [ref]$result)
    @{ Path = $path; Status = $status; Result = $result; Partitions = @(Get-WindowsPartitions $number).Count }
}

function Confirm-Backup([hashtable] $Backup) {
    Confirm-Status 'KkBackup' $Backup.Status
    $copied = $Backup.Result.PartitionsCopied
    Write-Check ($copied -eq $Backup.Partitions) 'it copied every partition that Windows lists' $copied
    $manifest = Get-Content -LiteralPath "$($Backup.Path).json" -Raw -Encoding UTF8 | ConvertFrom-Json
    Write-Check ($null -ne $manifest) 'the manifest is JSON'
}

Add-Step 'Back it up, clusters in use alone, from live volumes (KkBackup)' {
    $backup = Backup-Source 'live.vhdx' 1 0
    Confirm-Backup $backup
    $seen = "$($backup.Result.SnapshotsUsed) $($backup.Result.LiveUsedBlockCopies) $($backup.Result.LiveWholeCopies)"
    Write-Check ($backup.Result.SnapshotsUsed -eq 0) 'no snapshots were taken' $seen
    Write-Check ($backup.Result.LiveUsedBlockCopies -eq 1) 'of NTFS the clusters in use were copied' $seen
    $Run.SourcePartitions = @(Get-WindowsPartitions (Get-OwnNumber $Run.Source))
    $Run.Live = @{ File = $backup.Path; Size = $Run.Source.Size; Guid = $Run.Source.Guid }
}

Add-Step 'Back it up, clusters in use alone, from snapshots' {
    $backup = Backup-Source 'snapshot.vhdx' 1 1
    Confirm-Backup $backup
    Write-Check ($backup.Result.SnapshotsUsed -eq 1) 'a set of snapshots was taken' $backup.Result.SnapshotsUsed
    $copies = $backup.Result.SnapshotUsedBlockCopies
    Write-Check ($copies -eq 1) 'NTFS was read from its snapshot, clusters in use alone' $copies
    $Run.Snapshot = @{ File = $backup.Path; Size = $Run.Source.Size; Guid = $Run.Source.Guid }
}

Add-Step 'Back it up whole, from live volumes' {
    $backup = Backup-Source 'whole.vhdx' 0 0
    if ((Get-Hex $backup.Status) -eq '0xC0000011') {
        Write-Note 'reads of a mounted NTFS volume end before its partition, so a whole copy ends so too (0xC0000011)'
        return
    }
    Write-Note "a whole copy of a mounted NTFS volume answers $(Get-Hex $backup.Status)"
    Confirm-Backup $backup
}

function Confirm-Inspected([hashtable] $Image, [string] $What) {
    $held = [KestrelkitSmoke.Core]::Inspect($Image.File)
    Write-Check ([int64]$held.Info.VirtualSize -eq $Run.Source.Size) "$What is as large as the source"
    Write-Check ($held.Info.PartitionStyle -eq 2) "$What has a GPT" $held.Info.PartitionStyle
    $guid = New-Object Guid (, [byte[]]$held.Info.DiskGuid)
    Write-Check ($guid -eq $Run.Source.Guid) "$What has the source's identifier" $guid
    $wanted = @($Run.SourcePartitions | ForEach-Object { "$($_.Offset)+$($_.Size)" }) -join ' '
    $seen = @($held.Partitions | Sort-Object Offset | ForEach-Object { "$($_.Offset)+$($_.Length)" }) -join ' '
    Write-Check ($seen -eq $wanted) "$What has the partitions of the source" "$seen, source: $wanted"
    $held
}

Add-Step 'Inspect the images (KkInspectImage)' {
    $image = Confirm-Inspected (Get-Left 'Live') 'the image of live volumes'
    if ($Run.ContainsKey('Snapshot')) { $null = Confirm-Inspected $Run.Snapshot 'the image of snapshots' }
    $data = $image.Partitions | Where-Object { [int64]$_.Offset -eq $Run.DataStart }
    if ($null -eq $data) { throw 'the image lacks the NTFS partition' }
    $Run.DataNumber = [uint32]$data.Number
    $Run.DataLength = [int64]$data.Length
}

Add-Step 'Detach the source, whose identifier the images have too' {
    Dismount-Scratch (Get-Left 'Source')
    Write-Check $true 'the source is detached'
    $Run.Alone = $true
}

function Confirm-Alone {
    $null = Get-Left 'Alone'
    $identifier = $Run.Source.Guid.ToString('B')
    $same = @(Get-Disk | Where-Object { "$($_.Guid)" -eq $identifier })
    if ($same.Count -gt 0) { throw "disk $($same[0].Number) has the identifier of the source" }
}

# The disk that the library says it attached must be the one that Windows shows for the file.
function Confirm-Mounted([hashtable] $Image, [uint32] $Number, [string] $What) {
    $own = Get-OwnNumber $Image
    Write-Check ($own -eq $Number) "$What is disk $own" $Number
    $path = [KestrelkitSmoke.Core]::ImageOfDisk($own)
    $leaf = Split-Path -Leaf $Image.File
    Write-Check ("$path".EndsWith("\$leaf", [StringComparison]::OrdinalIgnoreCase)) "the file behind it is $leaf" $path
}

function Test-MountedImage([hashtable] $Image, [string] $What) {
    $number = [uint32]::MaxValue
    Confirm-Status 'KkMountImage' ([KestrelkitSmoke.Core]::KkMountImage($Image.File, [ref]$number))
    Confirm-Mounted $Image $number $What
    Confirm-Volume $Image $Run.DataStart $Run.DataFiles "NTFS in $What"
    Confirm-Volume $Image $Run.FatStart $Run.FatFiles "FAT32 in $What"
    $null = Get-OwnNumber $Image
    Confirm-Status 'KkUnmountImage' ([KestrelkitSmoke.Core]::KkUnmountImage($Image.File))
    Confirm-Detached $Image
    Write-Check $true "$What is detached"
}

Add-Step 'Mount, query and unmount the image of snapshots (KkMountImage, KkQueryDiskImage, KkUnmountImage)' {
    Confirm-Alone
    Test-MountedImage (Get-Left 'Snapshot') 'the image of snapshots'
}

Add-Step 'Restore the image onto the blank disk (KkRestorePartitions)' {
    Confirm-Alone
    $image = (Get-Left 'Live').File
    $number = Get-OwnNumber $Run.Blank
    $status = [KestrelkitSmoke.Core]::KkRestorePartitions($image, "\\.\PhysicalDrive$number", $null, 0, 1)
    # From now on the disk has the identifier of the source, but Windows does not look before the disk comes anew.
    Dismount-File $Run.Blank.File
    Confirm-Detached $Run.Blank
    Confirm-Status 'KkRestorePartitions' $status
    $Run.Blank.Guid = $Run.Source.Guid
    Mount-Scratch $Run.Blank
    $number = Get-OwnNumber $Run.Blank
    $wanted = @($Run.SourcePartitions | ForEach-Object { "$($_.Offset)+$($_.Size) $($_.GptType) $($_.Guid)" }) -join ' '
    $seen = @(Get-WindowsPartitions $number | ForEach-Object { "$($_.Offset)+$($_.Size) $($_.GptType) $($_.Guid)" })
    Write-Check (($seen -join ' ') -eq $wanted) 'Windows lists places, types and identifiers of the source' "$seen"
    Confirm-Volume $Run.Blank $Run.DataStart $Run.DataFiles 'the restored NTFS volume'
    Confirm-Volume $Run.Blank $Run.FatStart $Run.FatFiles 'the restored FAT32 volume'
    Dismount-Scratch $Run.Blank
}

Add-Step 'Restore the NTFS partition into free space of the target (KkRestoreToFreeSpace)' {
    $partition = Get-Left 'DataNumber'
    $number = Get-OwnNumber $Run.Target
    $free = Get-FreeStart $number
    $status = [KestrelkitSmoke.Core]::KkRestoreToFreeSpace($Run.Live.File, $partition, $number, [uint64]$free,
        [uint64]($Run.Target.Size - $free), 1)
    Confirm-Status 'KkRestoreToFreeSpace' $status
    $seen = Wait-For { Get-WindowsPartition $number $free }
    Write-Check ([int64]$seen.Size -eq $Run.DataLength) 'the partition has the length of its source' $seen.Size
    Confirm-Volume $Run.Target $free $Run.DataFiles 'the volume in free space'
    $Run.RestoredStart = $free
}

Add-Step 'Restore it onto a larger volume, and extend that (KkRestoreToVolume)' {
    $partition = Get-Left 'DataNumber'
    $start = New-OwnPartition $Run.Target ($LargerBytes + 256 * $MiB)
    $volume = Get-OwnVolume $Run.Target $start
    $status = [KestrelkitSmoke.Core]::KkRestoreToVolume($Run.Live.File, $partition, $volume, 1)
    Confirm-Status 'KkRestoreToVolume' $status
    Confirm-Volume $Run.Target $start $Run.DataFiles 'the restored volume'
    Confirm-Fills $Run.Target $start 'the larger partition'
}

Add-Step 'Clone a volume onto a larger one, and extend that (KkCloneVolume)' {
    $from = Get-Left 'RestoredStart'
    $start = New-OwnPartition $Run.Target ($LargerBytes + 256 * $MiB)
    Write-VolumeCache -DriveLetter (Get-Letter $Run.Target $from)
    $fromVolume = Get-OwnVolume $Run.Target $from
    $volume = Get-OwnVolume $Run.Target $start
    if ($fromVolume -eq $volume) { Stop-InDoubt 'source and target of the clone are one' }
    Confirm-Status 'KkCloneVolume' ([KestrelkitSmoke.Core]::KkCloneVolume($fromVolume, $volume, 1))
    Confirm-Volume $Run.Target $start $Run.DataFiles 'the clone'
    Confirm-Volume $Run.Target $from $Run.DataFiles 'the volume that was cloned'
    Confirm-Fills $Run.Target $start 'the larger partition'
}

Add-Step 'Mount the image with an overlay, write to it, discard it (KkMountImageOverlay, KkDiscardOverlay)' {
    Confirm-Alone
    $before = Get-Hash (Get-Left 'Live').File
    $overlay = @{ File = (Join-Path $Work 'overlay.vhdx'); Size = $Run.Source.Size; Guid = $Run.Source.Guid }
    $number = [uint32]::MaxValue
    $status = [KestrelkitSmoke.Core]::KkMountImageOverlay($Run.Live.File, $overlay.File, [ref]$number)
    Confirm-Status 'KkMountImageOverlay' $status
    $own = Get-OwnNumber $overlay
    Write-Check ($own -eq $number) "the overlay is disk $own" $number
    Write-Host "      the file behind it: $([KestrelkitSmoke.Core]::ImageOfDisk($own))"
    Confirm-Volume $overlay $Run.DataStart $Run.DataFiles 'NTFS in the overlay'
    $letter = Get-Letter $overlay $Run.DataStart
    [IO.File]::WriteAllBytes("${letter}:\only-in-the-overlay.bin", (New-Object byte[] 100000))
    Write-VolumeCache -DriveLetter $letter
    $null = Get-OwnNumber $overlay
    Confirm-Status 'KkDiscardOverlay' ([KestrelkitSmoke.Core]::KkDiscardOverlay($overlay.File))
    Confirm-Detached $overlay
    Write-Check (-not [IO.File]::Exists($overlay.File)) 'the overlay is gone'
    $after = Get-Hash $Run.Live.File
    Write-Check ($after -eq $before) 'the image is what it was' $after
}

Add-Step 'Recover the volume into a smaller partition (KkRecoverShrinkToFit)' {
    Confirm-Alone
    $partition = [int](Get-Left 'DataNumber')
    $before = Get-Hash $Run.Live.File
    $start = New-OwnPartition $Run.Target $SmallerBytes
    $status = -1
    foreach ($attempt in 1..5) {
        $null = Get-OwnVolume $Run.Target $start
        $number = Get-OwnNumber $Run.Target
        $status = [KestrelkitSmoke.Core]::KkRecoverShrinkToFit($Run.Live.File, $partition, $number, [uint64]$start)
        if (@('0xC000000D', '0xC0000013') -notcontains (Get-Hex $status)) { break }
        Write-Note "attempt ${attempt}: $(Get-Hex $status), as when the volume of the overlay has not arrived yet"
        Start-Sleep -Seconds 5
    }
    $overlay = "$($Run.Live.File).rec.avhdx"
    Write-Check (-not [IO.File]::Exists($overlay)) 'the overlay of the recovery is gone'
    Write-Check ((Get-Hash $Run.Live.File) -eq $before) 'the image is what it was'
    if ((Get-Hex $status) -eq '0xC0000021') {
        Write-Note 'the volume has something in the part that was to go, so the recovery was refused (0xC0000021)'
        return
    }
    Confirm-Status 'KkRecoverShrinkToFit' $status
    Confirm-Volume $Run.Target $start $Run.DataFiles 'the recovered volume'
    Confirm-Fills $Run.Target $start 'the smaller partition'
}

# Last, because mounting an image lets Windows write to it.
Add-Step 'Mount the image of live volumes, too' {
    Confirm-Alone
    Test-MountedImage (Get-Left 'Live') 'the image of live volumes'
}

# ---- The run -------------------------------------------------------------------------------------------------------

function Confirm-Surroundings {
    $principal = New-Object Security.Principal.WindowsPrincipal ([Security.Principal.WindowsIdentity]::GetCurrent())
    if (-not $principal.IsInRole([Security.Principal.WindowsBuiltInRole]::Administrator)) {
        throw 'only an administrator, in an elevated PowerShell, can run this'
    }
    if (-not [Environment]::Is64BitProcess) { throw 'this needs the 64-bit PowerShell' }
    if ($Dll -eq '' -or -not (Test-Path -LiteralPath $Dll -PathType Leaf)) { throw "there is no library at '$Dll'" }
    if ($Work -notmatch '^[A-Za-z]:\\[A-Za-z0-9_\\-]*[A-Za-z0-9_-]$') {
        throw "-Work must be a local folder of letters, digits, '_' and '-', not $Work"
    }
    if (Test-Path -LiteralPath $Work) { throw "$Work exists already" }
    if ((New-Object IO.DriveInfo ($Work.Substring(0, 1))).AvailableFreeSpace -lt 8192 * $MiB) {
        throw "$Work needs 8 GiB of free space"
    }
}

# Detaches what may still be attached, chosen by files in the folder that this run made, overlays first. Then removes
# what the run put there, by name and never with all that is below: a folder may still lead into a volume.
function Remove-Scratch {
    $images = @([IO.Directory]::GetFiles($Work) | Where-Object { $_ -match '\.a?vhdx$' })
    foreach ($file in @($images | Sort-Object { $_ -notmatch '\.avhdx$|\\overlay' })) {
        try { Invoke-Diskpart @("select vdisk file=`"$file`" noerr", 'detach vdisk noerr') }
        catch { Write-Note "diskpart: $_" }
    }
    $mount = Join-Path $Work 'mount'
    try {
        if ([IO.Directory]::Exists($mount)) { [IO.Directory]::Delete($mount, $false) }
        foreach ($pattern in @('*.vhdx', '*.avhdx', '*.vhdx.json', 'diskpart.txt')) {
            foreach ($file in [IO.Directory]::GetFiles($Work, $pattern)) { [IO.File]::Delete($file) }
        }
        [IO.Directory]::Delete($Work, $false)
    }
    catch { Write-Check $false "$Work is removed" $_ }
}

if ($List) {
    $index = 0
    foreach ($step in $Steps) {
        $index++
        Write-Host ('{0,2}  {1}' -f $index, $step.Name)
    }
    exit 0
}

Confirm-Surroundings
$version = (Get-CimInstance Win32_OperatingSystem)
Write-Host "$($version.Caption) $($version.Version), PowerShell $($PSVersionTable.PSVersion), $Dll"
Write-Host "SHA-256 of the library: $(Get-Hash (Get-Item -LiteralPath $Dll).FullName)"
try {
    $null = New-Item -ItemType Directory -Path $Work
    $Run.Made = $true
    foreach ($step in $Steps) {
        Write-Host "`n== $($step.Name)"
        try { & $step.Body }
        catch { Write-Check $false 'the step comes to its end' "$_ $($_.InvocationInfo.PositionMessage)" }
        if ($Run.Doubt) { break }
    }
}
finally {
    if ($Run.Made) {
        Write-Host "`n== Clean up"
        Remove-Scratch
    }
    Write-Host "`n$($Run.Passed) passed, $($Run.Failed) failed, $($Run.Noted) to look at"
}
if ($Run.Failed -gt 0) { exit 1 }
exit 0
