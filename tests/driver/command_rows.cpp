#include "command_rows.h"

#include <fstream>

static const std::string kServiceLine = "connmanctl config ethernet_00049f052a61_cable --ipv6 off --ipv4 ";
static const std::string kFirstTiming = "-g 1920 1080 1920 1080 32 -t 6734 148 528 36 4 44 5";
static const std::vector<uint8_t> kFirstCameraAtRest = [] {
    std::vector<uint8_t> bytes(Inv1 - PtzCamera, 0);
    bytes[0] = 1;
    return bytes;
}();

// clang-format off
const std::vector<CommandRow> CommandRows = {
    // Layouts. The state before differs in everything that the row sets, and has Swap 1 where the row keeps it.
    {.word = "S1",    .actsOn = kLayouts, .before = "TB2",   .changes = {{View, {0, 0}}}},
    {.word = "S2",    .actsOn = kLayouts, .before = "TB2",   .changes = {{View, {1, 0}}}, .s2Counts = 1},
    {.word = "SS",    .actsOn = kLayouts, .before = "TB2",   .changes = {{View, {2}}}},
    {.word = "TB",    .actsOn = kLayouts, .before = "BS2",   .changes = {{View, {21}}}},
    {.word = "BS",    .actsOn = kLayouts, .before = "TB2",   .changes = {{View, {3}}}},
    {.word = "PPTL",  .actsOn = kLayouts, .before = "TB2",   .changes = {{View, {4}}}},
    {.word = "PPTR",  .actsOn = kLayouts, .before = "TB2",   .changes = {{View, {5}}}},
    {.word = "PPBL",  .actsOn = kLayouts, .before = "TB2",   .changes = {{View, {6}}}},
    {.word = "PPBR",  .actsOn = kLayouts, .before = "TB2",   .changes = {{View, {7}}}},
    {.word = "SS1",   .actsOn = kLayouts, .before = "TB2",   .changes = {{View, {2, 0}}}},
    {.word = "SS2",   .actsOn = kLayouts, .before = "TB1",   .changes = {{View, {2, 1}}}},
    {.word = "TB1",   .actsOn = kLayouts, .before = "BS2",   .changes = {{View, {21, 0}}}},
    {.word = "TB2",   .actsOn = kLayouts, .before = "BS1",   .changes = {{View, {21, 1}}}},
    {.word = "BS1",   .actsOn = kLayouts, .before = "TB2",   .changes = {{View, {3, 0}}}},
    {.word = "BS2",   .actsOn = kLayouts, .before = "TB1",   .changes = {{View, {3, 1}}}},
    {.word = "PPTL1", .actsOn = kLayouts, .before = "TB2",   .changes = {{View, {4, 0}}}},
    {.word = "PPTL2", .actsOn = kLayouts, .before = "TB1",   .changes = {{View, {4, 1}}}},
    {.word = "PPTR1", .actsOn = kLayouts, .before = "TB2",   .changes = {{View, {5, 0}}}},
    {.word = "PPTR2", .actsOn = kLayouts, .before = "TB1",   .changes = {{View, {5, 1}}}},
    {.word = "PPBL1", .actsOn = kLayouts, .before = "TB2",   .changes = {{View, {6, 0}}}},
    {.word = "PPBL2", .actsOn = kLayouts, .before = "TB1",   .changes = {{View, {6, 1}}}},
    {.word = "PPBR1", .actsOn = kLayouts, .before = "TB2",   .changes = {{View, {7, 0}}}},
    {.word = "PPBR2", .actsOn = kLayouts, .before = "TB1",   .changes = {{View, {7, 1}}}},
    {.word = "SW",                        .before = "S1",    .changes = {{View, {1, 0}}}},
    {.word = "SW",    .sentOn = kLayouts, .before = "SS1",   .changes = {{View, {2, 1}}}},
    {.word = "PP",    .sentOn = kLayouts, .before = "PPBR2", .changes = {{View, {4, 1}}}},
    {.word = "PP",    .sentOn = kInputs,                     .changes = {{View, {4}}}},
    {.word = "SWHDMI", .changes = {{SwHdmi, {1}}}},
    {.word = "SWUSB",  .changes = {{SwHdmi, {0}}}},
    {.word = "KEY", .arguments = "2", .channels = kLocal, .sentOn = kLayouts, .before = "TB2",
     .changes = {{View, {1}}}, .s2Counts = 1},
    {.word = "KEY", .arguments = "6", .channels = kLocal, .sentOn = kLayouts, .before = "TB2", .changes = {{Swap, {0}}}},

    // Inputs and black
    {.word = "IN1", .actsOn = kInputs, .before = "IN4", .changes = {{Input, {1}}}},
    {.word = "IN2", .actsOn = kInputs, .before = "IN4", .changes = {{Input, {2}}}},
    {.word = "IN3", .actsOn = kInputs, .before = "IN4", .changes = {{Input, {3}}}},
    {.word = "IN4", .actsOn = kInputs, .before = "IN1", .changes = {{Input, {4}}}},
    {.word = "KEY",  .arguments = "2", .channels = kLocal, .sentOn = kInputs, .before = "IN4", .changes = {{Input, {2}}}},
    {.word = "SKEY", .arguments = "3", .channels = kLocal, .before = "IN4", .changes = {{Input, {3}}}},
    {.word = "SKEY", .arguments = "5", .channels = kLocal, .before = "SHW", .changes = {{Black, {1}}}},
    {.word = "BLK", .before = "SHW", .changes = {{Black, {1}}}},
    {.word = "SHW", .before = "BLK", .changes = {{Black, {0}}}},
    {.word = "BLANK", .arguments = "1", .changes = {{Black, {1}}, {Blank, {1}}},
     .runs = {"echo 1 > /sys/class/graphics/fb0/blank"}},
    {.word = "BLANK", .arguments = "0", .changes = {{Black, {0}}, {Blank, {0}}},
     .runs = {"echo 0 > /sys/class/graphics/fb0/blank"}},

    // What is told
    {.word = "GET", .channels = kSerial,  .sends = "Tesselvisor => 2.0.12\n*HDMI => 1920x1080 60Hz\n"},
    {.word = "GET", .channels = kConsole, .sends = "IMX->FX3 START\nTesselvisor => 2.0.12\n*IMX->FX3 DONE\n"},
    {.word = "GET", .channels = kNetwork, .sends = "Tesselvisor => 2.0.12\r\n*ENJPEGPARSE => 0\r\n"},
    {.word = "POLL", .channels = kLocal,   .sentOn = kLayouts, .before = "PPTL2", .sends = "VIEW => PPTL2\nBLACK => disabled\n"},
    {.word = "POLL", .channels = kNetwork, .sentOn = kLayouts, .before = "BLK SS1", .sends = "SS1\r\nBLACK => enabled\r\n"},
    {.word = "POLL", .channels = kLocal,   .sentOn = kInputs,  .before = "BLK IN3", .sends = "VIEW => IN3\nBLACK => enabled\n"},
    {.word = "POLL", .channels = kNetwork, .sentOn = kInputs,  .before = "IN4", .sends = "IN4\r\nBLACK => disabled\r\n"},
    {.word = "WEB", .channels = kNetwork, .sends = "HTTP/1.1 200 OK\nContent-Type: text/html\n\n<*</html>*"},
    {.word = "GETLOG", .channels = kNetwork,
     .runs = {"lsusb -t", "v4l2-ctl --list-devices", "lsusb -v", "dmesg", "journalctl -u tesselvisor"},
     .sends = "HTTP/1.1 200 OK\r\nContent-type: binary/octet-stream\r\n"
              "Content-Disposition: attachment; filename=systemlog.qdx\r\nAccept-Ranges: bytes\r\n\r\n"
              "*Tesselvisor => 2.0.12\r\n*END OF LOG\n=*=\n"},
    {.word = "FIRMWARE", .channels = kLocal},
    {.word = "SERIALTEST", .channels = kSerial,  .prints = "Loop not connected.\n", .sends = "Loop test\n"},
    {.word = "SERIALTEST", .channels = kConsole, .prints = "Loop not connected.\n"},
    {.word = "TOPTEST", .channels = kLocal, .prints = "Top not detected.\n"},
    {.word = "I2CTEST", .channels = kLocal, .prints = "I2C detected.\n"},
    {.word = "LANTEST", .channels = kLocal, .runs = {"ethtool eth0 | grep 'Link detected'"},
     .prints = "IP Address: 192.168.0.57\n"},
    {.word = "ENBCAST", .arguments = "0", .channels = kLocal},
    {.word = "ENLOG", .arguments = "1", .changes = {{EnLog, {1}}}},
    {.word = "ENLOG", .arguments = "0", .changes = {{EnLog, {0}}}, .prints = "STDOUT/STDERR to console.\n"},

    // Cameras. None is plugged here: a refused one-number form is remembered for the camera on display.
    {.word = "PAN",  .arguments = "-5",  .sentOn = kLayouts, .before = "SS1",
     .changes = {{PtzCamera, {1}}, {PanCamera1, {251, 255, 255, 255}}}, .prints = "Open failed!\n", .refused = true},
    {.word = "TILT", .arguments = "1",   .sentOn = kLayouts, .before = "S2",
     .changes = {{PtzCamera, {2}}, {TiltCamera2, {1, 0, 0, 0}}}, .prints = "Open failed!\n", .refused = true},
    {.word = "ZOOM", .arguments = "300", .sentOn = kLayouts, .before = "TB2",
     .changes = {{PtzCamera, {2}}, {ZoomCamera2, {44, 1, 0, 0}}}, .prints = "Open failed!\n", .refused = true},
    {.word = "PAN",  .arguments = "7",   .sentOn = kInputs, .before = "IN2",
     .changes = {{PtzCamera, {2}}, {PanCamera2, {7, 0, 0, 0}}}, .prints = "Open failed!\n", .refused = true},
    {.word = "TILT", .arguments = "-1",  .sentOn = kInputs, .before = "IN1",
     .changes = {{PtzCamera, {1}}, {TiltCamera1, {255, 255, 255, 255}}}, .prints = "Open failed!\n", .refused = true},
    {.word = "ZOOM", .arguments = "-2",  .sentOn = kInputs, .before = "IN3", .prints = "Open failed!\n", .refused = true},
    {.word = "PAN",  .arguments = "1 5", .prints = "Set V4L2_CID_PAN_SPEED failed!\n", .refused = true},
    {.word = "TILT", .arguments = "2 5", .prints = "Set V4L2_CID_TILT_SPEED failed!\n", .refused = true},
    {.word = "ZOOM", .arguments = "1 500", .refused = true},
    {.word = "PAN",  .arguments = "3 5", .refused = true},
    {.word = "PRESET",     .arguments = "1 1", .refused = true},
    {.word = "SAVEPRESET", .arguments = "2 1", .refused = true},

    // Sound
    {.word = "AIN1", .arguments = "5",   .changes = {{Ain1, {5}}}},
    {.word = "AIN2", .arguments = "100", .changes = {{Ain2, {100}}}},
    {.word = "AIN3", .arguments = "-90", .changes = {{Ain3, {166}}}},
    {.word = "AIN4", .arguments = "255", .changes = {{Ain4, {255}}}},
    {.word = "AIN4", .arguments = "0x10", .channels = kLocal,   .changes = {{Ain4, {0}}}},
    {.word = "AIN4", .arguments = "0x10", .channels = kNetwork, .changes = {{Ain4, {16}}}},
    {.word = "AOUT1", .arguments = "1", .changes = {{Aout1, {1}}}},
    {.word = "AOUT2", .arguments = "2", .changes = {{Aout2, {2}}}},
    {.word = "AOUT3", .arguments = "3", .changes = {{Aout3, {3}}}},
    {.word = "AOUT4", .arguments = "4", .changes = {{Aout4, {4}}}},
    {.word = "ACFG", .arguments = "2", .changes = {{Acfg, {2}}}},
    {.word = "SBTN", .arguments = "1", .channels = kLocal, .changes = {{Sbtn, {1}}}, .prints = "SBTN => 1\n"},
    // The running pipeline saves these within a moment, which may reach into the next row: that one saves as well.
    {.word = "AOUTHDMI",   .arguments = "0x10", .changes = {{AoutHdmi, {16}}},  .maySave = true, .prints = "AOUTHDMI => 16\n"},
    {.word = "AOUTANALOG", .arguments = "010",  .changes = {{AoutAnalog, {8}}}, .maySave = true, .prints = "AOUTANALOG => 8\n"},
    {.word = "AOUTUSB1",   .arguments = "9",    .changes = {{AoutUsb1, {9}}},   .maySave = true, .prints = "AOUTUSB1 => 9\n"},
    {.word = "AOUTUSB2",   .arguments = "258",  .changes = {{AoutUsb2, {2}}},   .maySave = true, .prints = "AOUTUSB2 => 2\n"},

    // Video and output
    {.word = "INV", .arguments = "3 1", .changes = {{Inv3, {1}}}, .saves = true},
    {.word = "ENJPEGPARSE", .arguments = "1", .changes = {{EnJpegParse, {1}}}},
    {.word = "OUTPUT", .arguments = "7", .channels = kNetwork, .sends = "Bad timing index.\r", .refused = true},
    {.word = "OUTPUT", .arguments = "7", .channels = kLocal, .sends = "Bad timing index.\n", .refused = true},
    {.word = "OUTPUT", .arguments = "0", .channels = kLocal, .sends = "Current timing index.\n"},
    {.word = "OUTPUT", .arguments = "2", .channels = kLocal, .changes = {{OutputHz, {60, 2}}},
     .runs = {"fbset -fb /dev/fb0 " + kFirstTiming, "fbset -fb /dev/fb2 " + kFirstTiming + " -vsync low -hsync low",
              "echo 0 > /sys/class/graphics/fb0/blank"}},
    {.word = "OUTPUT", .arguments = "2", .channels = kNetwork, .changes = {{OutputHz, {60, 2}}}, .saves = true,
     .runs = {"fbset -fb /dev/fb0 " + kFirstTiming, "fbset -fb /dev/fb2 " + kFirstTiming + " -vsync low -hsync low",
              "echo 0 > /sys/class/graphics/fb0/blank"}},
    {.word = "USBSTREAM",  .channels = kLocal, .changes = {{UsbStream, {255}}}, .prints = "Received USBSTREAM\n"},
    {.word = "USBNSTREAM", .channels = kLocal, .changes = {{UsbStream, {0}}}, .prints = "Received USBNSTREAM\n"},
    {.word = "RSTUSB", .channels = kLocal,
     .runs = {"echo ci_hdrc.0 > /sys/bus/platform/drivers/ci_hdrc/unbind",
              "echo ci_hdrc.1 > /sys/bus/platform/drivers/ci_hdrc/unbind",
              "echo ci_hdrc.0 > /sys/bus/platform/drivers/ci_hdrc/bind",
              "echo ci_hdrc.1 > /sys/bus/platform/drivers/ci_hdrc/bind"},
     .prints = "Resetting USB inputs...\n"},

    // Settings and network. From the static address on, nothing may select: a report in DHCP mode reads the lease.
    {.word = "SAVE", .saves = true},
    {.word = "DEVICEID", .arguments = "2", .channels = kLocal, .runs = {"echo DEVICEID=2 > /home/root/Tesselvisor.conf"}},
    {.word = "IP", .arguments = "10 0 0 5", .changes = {{IpAddress, {10, 0, 0, 5, 0}}}, .saves = true,
     .runs = {"connmanctl services", kServiceLine + "manual 192.168.0.81 255.255.255.0 192.168.0.1 > /dev/null",
              "ifconfig eth0 10.0.0.5 netmask 255.255.255.0",
              kServiceLine + "manual 10.0.0.5 255.255.255.0 192.168.0.1 > /dev/null"},
     .answersFirst = true},
    {.word = "NETMASK", .arguments = "255 255 0 0", .changes = {{Netmask, {255, 255, 0, 0}}}, .saves = true,
     .runs = {"ifconfig eth0 netmask 255.255.0.0"}, .answersFirst = true},
    {.word = "GATEWAY", .arguments = "10 0 0 1", .changes = {{Gateway, {10, 0, 0, 1}}}, .saves = true,
     .runs = {"route del default && route add default gw 10.0.0.1 eth0"}},
    {.word = "MACADDR", .arguments = "02 0B 3c 4d 5e 6f", .channels = kLocal, .saves = true,
     .runs = {"fw_setenv ethaddr 02:0b:3c:4d:5e:6f > /dev/null"}},
    {.word = "MAC", .arguments = "02 0B 3c 4d 5e 6f", .channels = kNetwork, .saves = true,
     .runs = {"fw_setenv ethaddr 02:0b:3c:4d:5e:6f > /dev/null"}},
    {.word = "DHCP", .arguments = "1", .changes = {{Dhcp, {1}}}, .saves = true,
     .runs = {"connmanctl services", kServiceLine + "dhcp > /dev/null"}, .answersFirst = true},
    {.word = "RSTR",
     .changes = {{View, {0, 0, 0, 0, 1}}, {IpAddress, {192, 168, 0, 81, 1}}, {OutputHz, {0, 0}}, {Black, {0}},
                 {S2Count, {0}}, {MonitorVendor, {0, 0, 0, 0}}, {PtzCamera, kFirstCameraAtRest}, {Inv1, {0, 0, 0, 0, 0, 0, 0, 0}}, {Sbtn, {0, 0, 0, 0, 0, 0}},
                 {AoutHdmi, {0, 0, 0, 0, 0, 255, 255, 255, 0, 0, 192, 168, 0, 1, 0, 0}}},
     .saves = true, .runs = {"connmanctl services", kServiceLine + "dhcp > /dev/null"}, .leaseFollows = true},
    // The tone brings a picture with it, whose supervision counts S2 from 0 again.
    {.word = "STARTAUDIOTEST", .channels = kLocal, .leaseFollows = true},
    {.word = "STOPAUDIOTEST",  .channels = kLocal, .leaseFollows = true},

    // The end
    {.word = "RESTART", .ends = Ends::kProcess},
    {.word = "QUIT", .ends = Ends::kProcess},
    {.word = "RST", .runs = {"echo \"<RST>\" > /dev/ttymxc0", "reboot -f"}, .ends = Ends::kBoard},
    {.word = "RBT", .channels = kLocal, .runs = {"reboot -f"}, .ends = Ends::kBoard},
};
// clang-format on

void StoreSettings(const Board& board, const SettingsBytes& bytes) {
    std::string record(136, '\0');
    record[1] = char(0xAB);
    record[2] = 1;
    for (const auto& [field, value] : bytes) record[field] = char(value);
    record[0] =
        char(record[1] + record[2] + record[View] + record[Swap]);  // the checksum; all else that it covers is 0
    std::ofstream(BoardFile(board, "home/root/config.bin"), std::ios::binary) << record;
}
