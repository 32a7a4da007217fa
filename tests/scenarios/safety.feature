@shared
Feature: Safety events and the siren

  @long
  Scenario: smoke sounds the siren for three minutes
    Given a panel
    And a device "smoke" of type SMOKE on device 3
    When "smoke" raises a safety event
    Then a safety event is in progress
    And the safety siren sounds
    When 3 minutes pass
    Then the safety siren is silent
    And a safety event is in progress

  @long
  Scenario: the siren outlasts the event
    Given a panel
    And a device "smoke" of type SMOKE on device 3
    When "smoke" raises a safety event
    And the safety event ends
    And 30 seconds pass
    Then no safety event is in progress
    And the safety siren sounds

  @long
  Scenario: the siren's process counts down on the bus
    Given a panel with the process "safety_siren"
    And a device "smoke" of type SMOKE on device 3
    When "smoke" raises a safety event
    Then a message is sent to "Process/ALL" from "SAFETY_SIREN" with class 1 and command 2
    When 3 minutes pass
    Then the log line "safety siren is silent, 0 s to go" is written by "SAFETY_SIREN"

  @long
  Scenario: the siren sounds when the security core says so
    Given a panel with the process "safety_siren"
    When the message 07 is sent to "Process/SAFETY_SIREN" with class 1 and command 1
    Then the log line "siren sounds: alarm of device 7" is written
