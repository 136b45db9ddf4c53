<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="en_US">
<context>
    <name>AdminCommands</name>
    <message>
        <source>警告</source>
        <translation>Warning</translation>
    </message>
    <message>
        <source>请先停止设备数据输出！</source>
        <translation>Please stop the device data output first!</translation>
    </message>
    <message>
        <source>请在器件运行过后使用此功能！</source>
        <translation>Please use this function after the device is running!</translation>
    </message>
    <message>
        <source>正在更新设备IP...</source>
        <translation>Updating the device IP...</translation>
    </message>
    <message>
        <source>更新失败</source>
        <translation>Update failed</translation>
    </message>
    <message>
        <source>IP更新失败：%1</source>
        <translation>IP update failed:%1</translation>
    </message>
    <message>
        <source>更新成功</source>
        <translation>Update succeeded</translation>
    </message>
    <message>
        <source>IP更新成功，请断开链接重新搜索设备！</source>
        <translation>IP update succeeded, please disconnect the link and search for the device again!</translation>
    </message>
    <message>
        <source>请在器件停止运行时使用更新功能！</source>
        <translation>Please use the update function when the device stops running!</translation>
    </message>
    <message>
        <source>提示</source>
        <translation>Prompt</translation>
    </message>
    <message>
        <source>请连接器件后使用更新功能！</source>
        <translation>Please use the update function after connecting the device!</translation>
    </message>
    <message>
        <source>选择升级文件</source>
        <translation>Select Upgrade File</translation>
    </message>
    <message>
        <source>设备网络更新</source>
        <translation>Device Network Update</translation>
    </message>
    <message>
        <source>正在更新固件，请勿断开设备电源...</source>
        <translation>Updating the firmware; do not switch the device off...</translation>
    </message>
    <message>
        <source>更新完成</source>
        <translation>Update complete</translation>
    </message>
    <message>
        <source>请等待设备绿灯亮起后重新开始</source>
        <translation>Please wait for the green light of the device to start again</translation>
    </message>
</context>
<context>
    <name>CameraSession</name>
    <message>
        <source>状态异常</source>
        <translation>Abnormal state</translation>
    </message>
    <message>
        <source>错误信息：%1</source>
        <translation>Error message:%1</translation>
    </message>
    <message>
        <source>网络错误</source>
        <translation>Network Error</translation>
    </message>
    <message>
        <source>设备断开</source>
        <translation>Device disconnect</translation>
    </message>
    <message>
        <source>设备已断开链接！</source>
        <translation>Device disconnected!</translation>
    </message>
    <message>
        <source>正在搜索设备...</source>
        <translation>Searching for devices...</translation>
    </message>
    <message>
        <source>提示</source>
        <translation>Prompt</translation>
    </message>
    <message>
        <source>未找到设备</source>
        <translation>Device not found</translation>
    </message>
    <message>
        <source>请选中设备后再开始！</source>
        <translation>Please select the device before starting!</translation>
    </message>
    <message>
        <source>正在打开设备...</source>
        <translation>Opening the device...</translation>
    </message>
    <message>
        <source>错误</source>
        <translation>Error</translation>
    </message>
    <message>
        <source>正在停止...</source>
        <translation>Stopping...</translation>
    </message>
    <message>
        <source>正在断开...</source>
        <translation>Disconnecting...</translation>
    </message>
    <message>
        <source>正在重新连接...</source>
        <translation>Reconnecting...</translation>
    </message>
</context>
<context>
    <name>CloudPoint</name>
    <message>
        <source>主视图</source>
        <translation>Main view</translation>
    </message>
    <message>
        <source>俯视图</source>
        <translation>Top view</translation>
    </message>
    <message>
        <source>左视图</source>
        <translation>Left view</translation>
    </message>
</context>
<context>
    <name>ConfigCommands</name>
    <message>
        <source>提示</source>
        <translation>Prompt</translation>
    </message>
    <message>
        <source>请在设备运行时导出配置！</source>
        <translation>Please export the configuration while the device is running!</translation>
    </message>
    <message>
        <source>导出路径</source>
        <translation>Export Path</translation>
    </message>
    <message>
        <source>完成</source>
        <translation>Complete</translation>
    </message>
    <message>
        <source>已成功导出配置！</source>
        <translation>Successfully exported configuration!</translation>
    </message>
    <message>
        <source>配置文件无法打开！</source>
        <translation>The configuration file cannot be opened!</translation>
    </message>
    <message>
        <source>导出异常</source>
        <translation>Export Exceptions</translation>
    </message>
    <message>
        <source>导出配置文件失败！</source>
        <translation>Failed to export configuration file</translation>
    </message>
    <message>
        <source>导出文件未清除！</source>
        <translation>Export file not cleared</translation>
    </message>
    <message>
        <source>请开始运行设备后停止数据输出再导入配置！</source>
        <translation>Please start running the device and stop the data output before importing the configuration!</translation>
    </message>
    <message>
        <source>选择配置文件</source>
        <translation>Select Profile</translation>
    </message>
    <message>
        <source>打开失败</source>
        <translation>Open Failed</translation>
    </message>
    <message>
        <source>请检查文件是否正确！</source>
        <translation>Please check if the file is correct!</translation>
    </message>
    <message>
        <source>导入异常</source>
        <translation>Import Exceptions</translation>
    </message>
    <message>
        <source>导入文件未清除！</source>
        <translation>Import file not cleared!</translation>
    </message>
    <message>
        <source>已成功导入配置！</source>
        <translation>Configuration imported successfully!</translation>
    </message>
    <message>
        <source>已成功重置配置，等待设备重启！</source>
        <translation>Successfully reset configuration, waiting for device restart!</translation>
    </message>
    <message>
        <source>已成功重置设备，等待设备重启！</source>
        <translation>The device has been reset successfully, waiting for the device to restart!</translation>
    </message>
    <message>
        <source>失败</source>
        <translation>Failed</translation>
    </message>
    <message>
        <source>请开始使用设备后停止设备再使用！</source>
        <translation>Please start using the device and stop using the device again!</translation>
    </message>
</context>
<context>
    <name>ControlPanel</name>
    <message>
        <source>功能设置</source>
        <translation>Function settings</translation>
    </message>
    <message>
        <source>触发模式</source>
        <translation>Trigger mode</translation>
    </message>
    <message>
        <source>正常模式</source>
        <translation>Normal mode</translation>
    </message>
    <message>
        <source>软件触发</source>
        <translation>software trigger</translation>
    </message>
    <message>
        <source>硬件触发</source>
        <translation>hardware trigger</translation>
    </message>
    <message>
        <source>硬件延时触发</source>
        <translation>Hardware delay trigger</translation>
    </message>
    <message>
        <source>触发</source>
        <translation>Trigger</translation>
    </message>
    <message>
        <source>延时</source>
        <translation>Delay</translation>
    </message>
    <message>
        <source>设置</source>
        <translation>Set</translation>
    </message>
    <message>
        <source>HDR模式</source>
        <translation>HDR</translation>
    </message>
    <message>
        <source>快速模式</source>
        <translation>Fast mode</translation>
    </message>
    <message>
        <source>单频模式</source>
        <translation>Single frequency</translation>
    </message>
    <message>
        <source>曝光模式</source>
        <translation>Exposure mode</translation>
    </message>
    <message>
        <source>手动</source>
        <translation>Manual</translation>
    </message>
    <message>
        <source>自动</source>
        <translation>Auto</translation>
    </message>
    <message>
        <source>RGB设置</source>
        <translation>RGB settings</translation>
    </message>
    <message>
        <source>RGB手动</source>
        <translation>RGB Manual</translation>
    </message>
    <message>
        <source>RGB自动</source>
        <translation>RGB Auto</translation>
    </message>
    <message>
        <source>分辨率</source>
        <translation>Resolution</translation>
    </message>
    <message>
        <source>滤波设置</source>
        <translation>Filter settings</translation>
    </message>
    <message>
        <source>空间滤波</source>
        <translation>spatial filter</translation>
    </message>
    <message>
        <source>均值滤波</source>
        <translation>mean filtering</translation>
    </message>
    <message>
        <source>滤波默认配置</source>
        <translation>Filter default</translation>
    </message>
    <message>
        <source>保存</source>
        <translation>Save</translation>
    </message>
    <message>
        <source>保存路径</source>
        <translation>Save Path</translation>
    </message>
    <message>
        <source>单帧保存</source>
        <translation>Single Frame Save</translation>
    </message>
    <message>
        <source>开始保存</source>
        <translation>Start Save</translation>
    </message>
    <message>
        <source>结束保存</source>
        <translation>End Save</translation>
    </message>
    <message>
        <source>存储配置到下位机</source>
        <translation>Store Configuration to Device</translation>
    </message>
    <message>
        <source>储存配置</source>
        <translation>Save Configuration</translation>
    </message>
    <message>
        <source>正在设置触发延时...</source>
        <translation>Setting the trigger delay...</translation>
    </message>
    <message>
        <source>正在切换HDR...</source>
        <translation>Switching HDR...</translation>
    </message>
    <message>
        <source>正在切换触发模式...</source>
        <translation>Changing the trigger mode...</translation>
    </message>
    <message>
        <source>正在应用默认配置...</source>
        <translation>Applying the default configuration...</translation>
    </message>
    <message>
        <source>正在切换快速模式...</source>
        <translation>Switching fast mode...</translation>
    </message>
    <message>
        <source>范围错误</source>
        <translation>Range Error</translation>
    </message>
    <message>
        <source>最小映射值大于最大映射值</source>
        <translation>The minimum mapping value is greater than the maximum mapping value</translation>
    </message>
    <message>
        <source>正在切换曝光模式...</source>
        <translation>Switching the exposure mode...</translation>
    </message>
    <message>
        <source>正在读取设备配置...</source>
        <translation>Reading the device configuration...</translation>
    </message>
    <message>
        <source>正在导入配置...</source>
        <translation>Importing configuration...</translation>
    </message>
    <message>
        <source>状态异常</source>
        <translation>Abnormal state</translation>
    </message>
    <message>
        <source>操作失败</source>
        <translation>Operation failed</translation>
    </message>
    <message>
        <source>完成</source>
        <translation>Complete</translation>
    </message>
</context>
<context>
    <name>Form</name>
    <message>
        <source>Form</source>
        <translation>Form</translation>
    </message>
    <message>
        <source>TextLabel</source>
        <translation>TextLabel</translation>
    </message>
</context>
<context>
    <name>PaneArea</name>
    <message>
        <source>深度图</source>
        <translation>Depth image</translation>
    </message>
    <message>
        <source>IR图</source>
        <translation>IR image</translation>
    </message>
    <message>
        <source>点云</source>
        <translation>Point cloud</translation>
    </message>
    <message>
        <source>RGB</source>
        <translation>RGB</translation>
    </message>
</context>
<context>
    <name>SaveControls</name>
    <message>
        <source>存储路径</source>
        <translation>Storage Path</translation>
    </message>
    <message>
        <source>路径错误</source>
        <translation>path err</translation>
    </message>
    <message>
        <source>路径中不能包含中文字符！</source>
        <translation>Path cannot contain Chinese characters!</translation>
    </message>
    <message>
        <source>未选择路径</source>
        <translation>No path selected</translation>
    </message>
    <message>
        <source>请先选择保存路径</source>
        <translation>Please select a save path first</translation>
    </message>
    <message>
        <source>保存成功</source>
        <translation>Save Success</translation>
    </message>
    <message>
        <source>已保存 %1 帧，等待 %2，失败 %3</source>
        <translation>Saved %1 frames, waiting %2, failed %3</translation>
    </message>
</context>
<context>
    <name>SessionPanel</name>
    <message>
        <source>搜索设备</source>
        <translation>Search device</translation>
    </message>
    <message>
        <source>设备信息</source>
        <translation>Device information</translation>
    </message>
    <message>
        <source>显示</source>
        <translation>Display</translation>
    </message>
    <message>
        <source>深度图</source>
        <translation>Depth image</translation>
    </message>
    <message>
        <source>IR图</source>
        <translation>IR image</translation>
    </message>
    <message>
        <source>点云</source>
        <translation>Point cloud</translation>
    </message>
    <message>
        <source>映射</source>
        <translation>Mapping</translation>
    </message>
    <message>
        <source>RGB映射到深度</source>
        <translation>RGB to depth</translation>
    </message>
    <message>
        <source>深度映射到RGB</source>
        <translation>Depth to RGB</translation>
    </message>
    <message>
        <source>彩色点云</source>
        <translation>RGB point cloud</translation>
    </message>
    <message>
        <source>储存托盘信息</source>
        <translation>Storage tray information</translation>
    </message>
    <message>
        <source>开始</source>
        <translation>Start</translation>
    </message>
    <message>
        <source>断开连接</source>
        <translation>Disconnect</translation>
    </message>
    <message>
        <source> 等待搜索...</source>
        <translation> Waiting for search...</translation>
    </message>
    <message>
        <source>RGB</source>
        <translation>RGB</translation>
    </message>
    <message>
        <source>已搜索到设备</source>
        <translation>Device Searched</translation>
    </message>
    <message>
        <source>停止</source>
        <translation>Stop</translation>
    </message>
</context>
<context>
    <name>SliderEditer</name>
    <message>
        <source>曝光时间(us)</source>
        <translation>Exposure time (us)</translation>
    </message>
    <message>
        <source>帧率设置</source>
        <translation>Frame Rate Setting</translation>
    </message>
    <message>
        <source>最小色彩映射距离(mm)</source>
        <translation>Minimum Color Mapping (mm)</translation>
    </message>
    <message>
        <source>最大色彩映射距离(mm)</source>
        <translation>Maximum Color Mapping (mm)</translation>
    </message>
    <message>
        <source>IR伽马值</source>
        <translation>IR Gamma Value</translation>
    </message>
    <message>
        <source>时域滤波</source>
        <translation>time domain filter</translation>
    </message>
    <message>
        <source>飞点滤波</source>
        <translation>flying-pixel filter</translation>
    </message>
    <message>
        <source>置信度滤波</source>
        <translation>confidence filter</translation>
    </message>
    <message>
        <source>卡尔曼滤波</source>
        <translation>kalman filter</translation>
    </message>
    <message>
        <source>RGB曝光时间(us)</source>
        <translation>RGB Exposure Time (us)</translation>
    </message>
    <message>
        <source>RGB最大自动曝光时间</source>
        <translation>RGB Max Auto Exposure Time</translation>
    </message>
    <message>
        <source>RGB增益</source>
        <translation>RGB Gain</translation>
    </message>
    <message>
        <source>RGB对比度</source>
        <translation>RGB Contrast</translation>
    </message>
    <message>
        <source>TextLabel</source>
        <translation>TextLabel</translation>
    </message>
</context>
<context>
    <name>TcpORudp</name>
    <message>
        <source>net</source>
        <translation>net</translation>
    </message>
</context>
<context>
    <name>Widget</name>
    <message>
        <source>网络状态</source>
        <translation>Network Health</translation>
    </message>
    <message>
        <source>深度直方图</source>
        <translation>Depth Histogram</translation>
    </message>
    <message>
        <source>Dexalon V2.0.9</source>
        <translation>Dexalon V2.0.9</translation>
    </message>
    <message>
        <source>Debug</source>
        <translation>Debug</translation>
    </message>
    <message>
        <source>网络</source>
        <translation>Network</translation>
    </message>
    <message>
        <source>设备网络设置</source>
        <translation>Device Network Settings</translation>
    </message>
    <message>
        <source>视图</source>
        <translation>View</translation>
    </message>
    <message>
        <source>控制面板</source>
        <translation>Control Panel</translation>
    </message>
    <message>
        <source>管理面板</source>
        <translation>Management Panel</translation>
    </message>
    <message>
        <source>配置</source>
        <translation>Configuration</translation>
    </message>
    <message>
        <source>更新</source>
        <translation>Update</translation>
    </message>
    <message>
        <source>导入配置</source>
        <translation>Import Configuration</translation>
    </message>
    <message>
        <source>导出配置</source>
        <translation>Export Configuration</translation>
    </message>
    <message>
        <source>设备配置初始化</source>
        <translation>Device Configuration Initialization</translation>
    </message>
    <message>
        <source>设备初始化</source>
        <translation>Device initialization</translation>
    </message>
    <message>
        <source>界面默认配置</source>
        <translation>Interface default configuration</translation>
    </message>
    <message>
        <source>切换网络协议</source>
        <translation>Switch network protocol</translation>
    </message>
    <message>
        <source>切换语言</source>
        <translation>Switch language</translation>
    </message>
    <message>
        <source>中文</source>
        <translation>Chinese</translation>
    </message>
    <message>
        <source>English</source>
        <translation>English</translation>
    </message>
    <message>
        <source>调试信息</source>
        <translation>Debugging Information</translation>
    </message>
    <message>
        <source>警告</source>
        <translation>Warning</translation>
    </message>
    <message>
        <source>请先停止设备数据输出！</source>
        <translation>Please stop the device data output first!</translation>
    </message>
    <message>
        <source>net</source>
        <translation>net</translation>
    </message>
</context>
<context>
    <name>debug</name>
    <message>
        <source>Debug</source>
        <translation>Debug</translation>
    </message>
    <message>
        <source>清空</source>
        <translation>Clear</translation>
    </message>
    <message>
        <source>保存到文件</source>
        <translation>Save to file</translation>
    </message>
</context>
<context>
    <name>netSetting</name>
    <message>
        <source>设备网络设置</source>
        <translation>Device Network Settings</translation>
    </message>
    <message>
        <source>IP</source>
        <translation>IP</translation>
    </message>
    <message>
        <source>更新</source>
        <translation>Update</translation>
    </message>
</context>
<context>
    <name>DepthHistogramView</name>
    <message>
        <source>自动范围</source>
        <translation>Auto range</translation>
    </message>
    <message>
        <source>把色彩映射范围设为当前帧深度的1%到99%分位</source>
        <translation>Set the colour mapping range to the 1st to 99th percentile of the current frame's depths</translation>
    </message>
    <message>
        <source>没有深度数据</source>
        <translation>No depth data</translation>
    </message>
    <message>
        <source>1%-99%: %1-%2 mm</source>
        <translation>1%-99%: %1-%2 mm</translation>
    </message>
</context>
<context>
    <name>HealthArea</name>
    <message>
        <source>传输</source>
        <translation>Transport</translation>
    </message>
    <message>
        <source>接收</source>
        <translation>Received</translation>
    </message>
    <message>
        <source>显示 深度/IR/RGB</source>
        <translation>Painted depth/IR/RGB</translation>
    </message>
    <message>
        <source>数据率</source>
        <translation>Data rate</translation>
    </message>
    <message>
        <source>丢帧</source>
        <translation>Dropped frames</translation>
    </message>
    <message>
        <source>数据包 丢失/重发请求/恢复</source>
        <translation>Datagrams lost/asked again/recovered</translation>
    </message>
    <message>
        <source>延迟 平均/最大</source>
        <translation>Latency mean/max</translation>
    </message>
</context>
<context>
    <name>HealthMonitor</name>
    <message>
        <source>网络丢包 %1%，丢帧 %2%</source>
        <translation>Network loss %1%, frames dropped %2%</translation>
    </message>
    <message>
        <source>网络已恢复：丢包 %1%，丢帧 %2%</source>
        <translation>Network recovered: loss %1%, frames dropped %2%</translation>
    </message>
</context>
<context>
    <name>RegionStats</name>
    <message>
        <source>%1x%2 像素</source>
        <translation>%1x%2 pixels</translation>
    </message>
    <message>
        <source>均值 %1  标准差 %2</source>
        <translation>Mean %1  SD %2</translation>
    </message>
    <message>
        <source>最小 %1  最大 %2</source>
        <translation>Min %1  Max %2</translation>
    </message>
    <message>
        <source>无有效像素</source>
        <translation>No valid pixels</translation>
    </message>
    <message>
        <source>有效像素 %1%</source>
        <translation>Valid pixels %1%</translation>
    </message>
</context>
</TS>
