@shared
Feature: Faults, and what the panel makes of them

  @long
  Scenario: a process that was killed starts again
    Given a panel with the process "alarm_core"
    When the process "alarm_core" is killed
    Then the process "alarm_core" ends with -9
    When the process "alarm_core" is restarted
    Then the process "alarm_core" runs

  Scenario: a process that is asked to end does so with 0
    Given a panel with the process "safety_siren"
    When the process "safety_siren" is asked to end
    Then the process "safety_siren" ends with 0

  @long
  Scenario: a process comes back to a broker that was away
    Given a panel with the process "alarm_core"
    When the broker is killed
    Then the log line "connection to the broker lost" is written by "ALARM_CORE"
    When the fault is over
    And the message 00 is sent to "Process/ALARM_CORE" with class 1 and command 0
    Then partition FULL is armed within 20 seconds

  Scenario: a request waits for a process that stands still
    Given a panel with the process "alarm_core"
    And a process listens to "Process/ALARM_CORE"
    When the process "alarm_core" is stopped
    And the message 01 is sent to "Process/ALARM_CORE" with class 1 and command 0
    Then partition DAY is disarmed
    When the process "alarm_core" is continued
    Then partition DAY is armed

  @long
  Scenario: a request gets through a slow broker
    Given a panel with the process "alarm_core"
    When the broker is slow
    And the message 02 is sent to "Process/ALARM_CORE" with class 1 and command 0
    Then partition NIGHT is armed

  Scenario: the DNS file cannot be written on a read-only disk
    Given a panel
    And the field "dnsServerPairs[0].primary" is set to "192.0.2.1"
    When the disk of "/data" is read-only
    And the command "ozuctl net dns-file write" is run
    Then the command ends with 4
    When the fault is over
    And the command "ozuctl net dns-file write" is run
    Then the command ends with 0

  Scenario Outline: a name, and what DNS says of it
    Given a panel
    When DNS is <behaviour>
    And the command "ozuctl net resolve panel.test" is run
    Then the command ends with <status>
    And DNS is asked for "panel.test"

    Examples:
      | behaviour | status |
      | honest    | 0      |
      | refuse    | 1      |
      | unknown   | 1      |

  @long
  Scenario: the kernel's command line is another
    Given a panel
    When the kernel command line is "androidboot.serialno=7F"
    And the command "cat /proc/cmdline" is run
    Then the command prints "androidboot.serialno=7F"
