Feature: Reboots and power cuts

  @long
  Scenario: a reboot is announced, and remembered by its reason
    Given a panel with the process "alarm_core"
    When the command "ozuctl reboot --delay 1 --reason 17 --text update >/dev/null 2>&1 &" is run
    Then a message is sent to "Process/ALL" with class 1 and command 0
    And the panel reboots within 20 seconds
    When the panel boots again
    And the command "ozuctl uptime" is run
    Then the command prints "17"
    And the process "alarm_core" runs
    And the panel has booted 2 times

  @long
  Scenario: the power manager hears of it only in its mode
    Given a panel
    And the field "powerManagerMode" is set to "2"
    When the command "ozuctl reboot --delay 1 >/dev/null 2>&1 &" is run
    Then a message is sent to "Process/ALL" with class 1 and command 0
    And no message is sent to "Process/POWER_MANAGER"
    And the panel reboots within 20 seconds

  @long
  Scenario: a power cut leaves nothing armed
    Given a panel with the process "alarm_core"
    And partition FULL is armed
    When the power is cut
    Then the arm type is DISARMED
    And the process "alarm_core" runs
    And the panel has booted 2 times
