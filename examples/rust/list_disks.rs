//! Lists all disks and partitions. For an elevated prompt, with KestrelkitCore.dll beside the program:
//!
//!     rustc --target x86_64-pc-windows-gnu -L build/dll examples/rust/list_disks.rs

mod kestrelkit;

use kestrelkit::{list_disks, list_partitions, text_of, KkStatus};

fn list_all() -> Result<(), KkStatus> {
    let disks = list_disks()?;
    if disks.is_empty() {
        println!("No disk can be read. Is this process elevated?");
    }
    for disk in disks {
        let style = match { disk.partitionStyle } {
            kestrelkit::KK_PARTITION_STYLE_GPT => "GPT",
            kestrelkit::KK_PARTITION_STYLE_MBR => "MBR",
            _ => "no table",
        };
        println!("Disk {}: {} MiB, {}", { disk.number }, { disk.size } >> 20, style);
        for partition in list_partitions(disk.number)? {
            println!(
                "  {}  at {}  {} MiB  {}  {}  {}",
                { partition.number },
                { partition.startOffset },
                { partition.length } >> 20,
                text_of(&{ partition.driveLetter }),
                text_of(&{ partition.fileSystemName }),
                text_of(&{ partition.name })
            );
        }
    }
    Ok(())
}

fn main() {
    if let Err(status) = list_all() {
        eprintln!("failed: 0x{:08X}", status);
        std::process::exit(1);
    }
}
