#include "settings/process_flags.h"

Shared<uint8_t> PipelineRestart{0};
Shared<uint8_t> AudioRestart{0};
Shared<uint8_t> AudioTest{0};
Shared<uint8_t> AudioBug{0};
Shared<uint8_t> StatusBroadcast{1};
Shared<uint8_t> MuteIn{0};
Shared<uint8_t> VideoPoolIssue{0};
Shared<uint8_t> HdmiSyncLost{0};
Shared<uint32_t> FrameCount{0};
