// Lists all disks and partitions. For an elevated prompt, with KestrelkitCore.dll beside the program:
//
//     csc /unsafe ListDisks.cs Kestrelkit.cs
using System;
using Kestrelkit;

internal static class ListDisks
{
    private static uint Check(string call, int status)
    {
        if (status < 0)
        {
            throw new InvalidOperationException(string.Format("{0}: 0x{1:X8}", call, status));
        }
        return (uint)status;
    }

    private static KkDiskInfo[] Disks()
    {
        uint count;
        Check("KkListDisks", Native.KkListDisks(null, 0, out count));
        var records = new KkDiskInfo[count];
        Check("KkListDisks", Native.KkListDisks(records, count, out count));
        // There may be fewer of them by now.
        Array.Resize(ref records, (int)Math.Min(count, (uint)records.Length));
        return records;
    }

    private static KkPartitionInfo[] Partitions(uint disk)
    {
        uint count;
        Check("KkListPartitions", Native.KkListPartitions(disk, null, 0, out count));
        var records = new KkPartitionInfo[count];
        Check("KkListPartitions", Native.KkListPartitions(disk, records, count, out count));
        Array.Resize(ref records, (int)Math.Min(count, (uint)records.Length));
        return records;
    }

    private static unsafe string Describe(KkPartitionInfo partition)
    {
        return string.Format("  {0}  at {1}  {2} MiB  {3}  {4}  {5}", partition.number, partition.startOffset,
                             partition.length >> 20, Text.Of(partition.driveLetter, 4),
                             Text.Of(partition.fileSystemName, 12), Text.Of(partition.name, 36));
    }

    private static int Main()
    {
        try
        {
            var disks = Disks();
            if (disks.Length == 0)
            {
                Console.WriteLine("No disk can be read. Is this process elevated?");
            }
            foreach (var disk in disks)
            {
                Console.WriteLine("Disk {0}: {1} MiB, {2}", disk.number, disk.size >> 20, disk.partitionStyle);
                foreach (var partition in Partitions(disk.number))
                {
                    Console.WriteLine(Describe(partition));
                }
            }
            return 0;
        }
        catch (InvalidOperationException error)
        {
            Console.Error.WriteLine(error.Message);
            return 1;
        }
    }
}
